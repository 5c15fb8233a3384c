#ifndef BENCH_LOCALSOCKET_H
#define BENCH_LOCALSOCKET_H

#include "testbed/Descriptor.h"

#include <string>
#include <sys/types.h>

namespace bench {

/*
 * Where a server of that process id listens for requests, and for who subscribes to notifications.
 */
std::string RequestPath(pid_t server);
std::string NotificationPath(pid_t server);

/* Local stream sockets, closed when their descriptors go. All of them throw what fails. */
testbed::Descriptor Listen(const std::string& path);
testbed::Descriptor Accept(const testbed::Descriptor& listener); // blocks until a client connects
testbed::Descriptor Connect(const std::string& path);

} // namespace bench

#endif
