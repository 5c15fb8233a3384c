#include "BareClient.h"

#include "LocalAddress.h"

#include "stage/Descriptor.h"
#include "stage/Failure.h"

#include <cstddef>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

void ExchangeBarely(const std::string& path, const std::string& frame) {
    const sockaddr_un address = LocalAddress(path);
    const stage::Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    stage::Require(connect(client.Get(), to, sizeof address) == 0, "cannot connect to " + path);
    stage::Require(write(client.Get(), frame.data(), frame.size()) ==
                       static_cast<ssize_t>(frame.size()),
                   "cannot write a request");
    char reply[65536];
    for (std::size_t size = 0; size < frame.size();) {
        const ssize_t got = read(client.Get(), reply, sizeof reply);
        stage::Require(got > 0, "cannot read a reply");
        size += static_cast<std::size_t>(got);
    }
}

} // namespace bench
