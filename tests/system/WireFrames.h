#ifndef TESTS_SYSTEM_WIREFRAMES_H
#define TESTS_SYSTEM_WIREFRAMES_H

/* The server's frames as a Puppet writes them, made independently of the daemon's code. */

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wire {

constexpr std::size_t kHeaderSize = 12;

/* Returns the reply that means success. */
std::string EmptyReply();

/* Added to a test's short name of a changer: the GUID then needs more than 63 bits, so the daemon's
   numbers of it are objects with a reference count. */
constexpr std::uint64_t kGuidBase = 0x5000C500ABCD0000;

struct Changer {
    std::uint64_t guid = 0;  // without kGuidBase
    bool hasDisc = false;    // in slot 0, never identified
    bool wantsBuild = false; // a user has requested a build
};

/* Returns the notification "changer list". */
std::string ChangerList(const std::vector<Changer>& changers);
/* Returns the notification "changer info", with an unknown key whose value has `padding` bytes. */
std::string ChangerInfo(const std::vector<Changer>& changers, std::size_t padding = 0);

} // namespace wire

#endif
