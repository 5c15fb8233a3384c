#ifndef TESTS_SYSTEM_WIREFRAMES_H
#define TESTS_SYSTEM_WIREFRAMES_H

// The server's frames as a Puppet writes them, made without any library.

#include <string>
#include <vector>

namespace wire {

constexpr std::size_t kHeaderSize = 12;

std::string Frame(const std::string& payload);

// The reply that means success.
std::string EmptyReply();

struct Changer {
    unsigned guid = 0;
    bool hasDisc = false;    // one, never identified, in slot 0
    bool wantsBuild = false; // by a user's request
};

std::string ChangerList(const std::vector<Changer>& changers);
// With a key of so many bytes that means nothing.
std::string ChangerInfo(const std::vector<Changer>& changers, std::size_t padding = 0);

} // namespace wire

#endif
