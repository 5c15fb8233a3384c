#include "ChangerServerConnectionLib/LocalSocket.h"

#include <stdio.h>

CFDataRef CreateLocalSocketAddress(const char* path) {
    struct sockaddr_un address = {};
    address.sun_len = sizeof address;
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(&address),
                        sizeof address);
}

CFSocketRef CreateConnectedLocalSocket(CFDataRef address, CFSocketCallBack callout, void* info) {
    const CFSocketSignature signature = {PF_UNIX, SOCK_STREAM, 0, address};
    const CFSocketContext context = {0, info, nullptr, nullptr, nullptr};
    return CFSocketCreateConnectedToSocketSignature(kCFAllocatorDefault, &signature,
                                                    kCFSocketDataCallBack, callout, &context,
                                                    kServerSocketTimeout);
}

void CloseLocalSocket(CFSocketRef socket) {
    if (socket == nullptr)
        return;
    CFSocketInvalidate(socket);
    CFRelease(socket);
}
