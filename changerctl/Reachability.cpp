#include "changerctl/Reachability.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "ChangerServerConnectionLib/LocalSocket.h"
#include "changerctl/Failure.h"
#include "common/CFHelpers.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace changerctl {
namespace {

[[noreturn]] void FailUnreachable(const std::string& reason) {
    throw Failure(ExitStatus::NoServer, reason);
}

std::string UserName(uid_t user) {
    const passwd* entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : "user " + std::to_string(user);
}

// A server that has ended may leave its socket behind, where nobody listens.
bool CanConnect(const std::string& path) {
    const auto ignoreData = [](CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {};
    CFDataRef address = CreateLocalSocketAddress(path.c_str());
    CFSocketRef socket =
        address != nullptr ? CreateConnectedLocalSocket(address, ignoreData, nullptr) : nullptr;
    CloseLocalSocket(socket);
    CFHReleaseIfSet(address);
    return socket != nullptr;
}

} // namespace

std::string SocketPath(ServerSocket which) {
    std::array<char, kLocalSocketPathSize> path{};
    const auto get = which == ServerSocket::Messages ? GetChangerServerMessageSocketPath
                                                     : GetChangerServerNotificationSocketPath;
    VErrLink* failure = get(path.data(), path.size());
    const VErrCode code = failure != nullptr ? VErrGetErrCode(failure) : 0;
    VErrCatch(&failure);
    if (code == kVErrCodeServerNotFound)
        FailUnreachable("no changer server runs: no process has a name that contains carouseld");
    if (code != 0)
        FailUnreachable("cannot read the list of processes");
    return path.data();
}

void RequireReachable(ServerSocket which) {
    const std::string path = SocketPath(which);
    struct stat socket{};
    if (stat(path.c_str(), &socket) != 0 && errno == ENOENT)
        FailUnreachable("the changer server has no socket " + path + " yet");
    if (faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) != 0 && errno == EACCES)
        FailUnreachable("no permission to connect to " + path + ", which belongs to " +
                        UserName(socket.st_uid));
}

void RequireConnection(ServerSocket which) {
    RequireReachable(which);
    const std::string path = SocketPath(which);
    if (!CanConnect(path))
        FailUnreachable("cannot connect to " + path);
}

} // namespace changerctl
