#ifndef BENCH_LOCALADDRESS_H
#define BENCH_LOCALADDRESS_H

#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace bench {

inline sockaddr_un LocalAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

} // namespace bench

#endif
