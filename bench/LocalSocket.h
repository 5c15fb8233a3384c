#ifndef BENCH_LOCALSOCKET_H
#define BENCH_LOCALSOCKET_H

#include "stage/Descriptor.h"

#include <string>
#include <sys/types.h>

namespace bench {

/*
 * Where a server of that process id listens for requests, and for who subscribes to notifications.
 */
std::string RequestPath(pid_t server);
std::string NotificationPath(pid_t server);

/* Local stream sockets, closed when their descriptors go. All of them throw what fails. */
stage::Descriptor Listen(const std::string& path);
stage::Descriptor Accept(const stage::Descriptor& listener); // blocks until a client connects
stage::Descriptor Connect(const std::string& path);

} // namespace bench

#endif
