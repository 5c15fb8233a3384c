#ifndef TESTS_SYSTEM_WIREFRAMES_H
#define TESTS_SYSTEM_WIREFRAMES_H

/* The server's frames as a Puppet writes them, made without any library. */

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wire {

constexpr std::size_t kHeaderSize = 12;

std::string Frame(const std::string& payload);

/* The reply that means success. */
std::string EmptyReply();

/* Added to what a test calls a changer, so that the daemon's numbers of it are objects, whose
   references count: integers of 63 bits are held by the reference itself. */
constexpr std::uint64_t kGuidBase = 0x5000C500ABCD0000;

struct Changer {
    std::uint64_t guid = 0;  // without kGuidBase
    bool hasDisc = false;    // one, never identified, in slot 0
    bool wantsBuild = false; // by a user's request
};

std::string ChangerList(const std::vector<Changer>& changers);
/* With a key of so many bytes that means nothing. */
std::string ChangerInfo(const std::vector<Changer>& changers, std::size_t padding = 0);

} // namespace wire

#endif
