#include "Peer.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace simulator {

Peer::Peer(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), path);
}

void Peer::Send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0)
            throw std::system_error(errno, std::generic_category(), "send");
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void Peer::SendRequest(const Value& request) const {
    Send(EncodeFrame(request.ToXml()));
}

std::string Peer::Receive() {
    char buffer[65536];
    const ssize_t count = recv(socket_.Get(), buffer, sizeof buffer, 0);
    return count < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(count));
}

std::optional<Value> Peer::ReceiveValue() {
    for (;;) {
        if (const auto payload = reader_.TakePayload())
            return Value::ParseXml(*payload);
        const std::string bytes = Receive();
        if (bytes.empty())
            return {};
        reader_.Append(bytes);
    }
}

std::int64_t Peer::Exchange(const Value& request) {
    SendRequest(request);
    const auto reply = ReceiveValue();
    return reply.value().FindInteger("error code").value_or(0) & 0xFFFFFFFF;
}

Value MakeRequest(const char* command) {
    Value request = Value::MakeDictionary();
    request.Set("command", command).Set("Changer GUID", 0xA1).Set("Storage Element Index", 0);
    return request;
}

Value MakePrivateMount(std::int64_t slot) {
    Value request = MakeRequest("mount disc");
    request.Set("Storage Element Index", slot)
        .Set("Partition ID", "")
        .Set("client name", "Media Identification")
        .Set("private", true)
        .Set("private PID", 100)
        .Set("private family", 1)
        .Set("mount disc clear errors", true)
        .Set("mount disc start mount", true);
    return request;
}

Value MakePrivateEject(std::int64_t slot) {
    Value request = MakeRequest("eject disc");
    request.Set("Storage Element Index", slot)
        .Set("private", true)
        .Set("private PID", 100)
        .Set("private family", 1);
    return request;
}

} // namespace simulator
