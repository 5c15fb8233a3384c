#include "BareClient.h"

#include "LocalSocket.h"
#include "testbed/Failure.h"

#include <unistd.h>

#include <cstddef>

namespace bench {

void ExchangeFrame(const std::string& path, const std::string& frame) {
    const testbed::Descriptor client = Connect(path);
    testbed::Require(write(client.Get(), frame.data(), frame.size()) ==
                         static_cast<ssize_t>(frame.size()),
                     "cannot write a request");
    char reply[65536];
    for (std::size_t size = 0; size < frame.size();) {
        const ssize_t got = read(client.Get(), reply, sizeof reply);
        testbed::Require(got > 0, "cannot read a reply");
        size += static_cast<std::size_t>(got);
    }
}

} // namespace bench
