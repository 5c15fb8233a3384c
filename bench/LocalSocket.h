#ifndef BENCH_LOCALSOCKET_H
#define BENCH_LOCALSOCKET_H

#include "testbed/Descriptor.h"

#include <sys/types.h>

#include <string>

namespace bench {

/* The paths of the sockets on which the server with this process id listens for requests and for
   subscribers to notifications. */
std::string RequestPath(pid_t server);
std::string NotificationPath(pid_t server);

/* Local stream sockets. The functions throw Failure on errors. Accept() blocks until a client
   connects. */
testbed::Descriptor Listen(const std::string& path);
testbed::Descriptor Accept(const testbed::Descriptor& listener);
testbed::Descriptor Connect(const std::string& path);

} // namespace bench

#endif
