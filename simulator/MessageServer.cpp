#include "simulator/MessageServer.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace simulator {

namespace {

// At the limit, the oldest client without a request is disconnected for the next one.
constexpr std::size_t kMaximumConnections = 512;

std::string MakeFieldName(const std::string& key) {
    std::string name;
    for (const char character : key) {
        const auto byte = static_cast<unsigned char>(character);
        name += std::isalnum(byte) ? static_cast<char>(std::tolower(byte)) : '-';
    }
    return name;
}

Fields DescribeRequest(Fields fields, const Value& request) {
    for (const std::string& key : request.Keys()) {
        if (key == "Changer GUID") {
            fields.AddChanger(
                static_cast<std::uint64_t>(request.FindInteger(key.c_str()).value_or(0)));
        } else if (key != "command") {
            fields.Add(MakeFieldName(key), request.Describe(key.c_str()));
        }
    }
    return fields;
}

std::string FormatCode(const Value& reply) {
    const auto code = static_cast<std::uint64_t>(reply.FindInteger("error code").value_or(0));
    return code == 0 ? "0" : "0x" + FormatGuid(code);
}

Value MakeErrorReply(const Fault& fault) {
    Value reply = Value::MakeDictionary();
    reply.Set("error code", fault.code);
    if (!fault.text.empty())
        reply.Set("error string", fault.text);
    return reply;
}

} // namespace

MessageServer::MessageServer(const std::string& path, Services services)
    : services_(std::move(services)), socket_(path), acceptor_([this] { Accept(); }) {}

MessageServer::~MessageServer() {
    stop_.request_stop();
    wakeEvent_.Signal();
    acceptor_.join();
    connections_.clear();
}

void MessageServer::Accept() {
    for (unsigned long long number = 1; !stop_.stop_requested();) {
        connections_.remove_if(
            [](const Connection& connection) { return connection.ended.load(); });
        const bool isFull = connections_.size() >= kMaximumConnections;
        if (isFull)
            DropIdleConnection();
        pollfd sources[] = {{wakeEvent_.Get(), POLLIN, 0}, {socket_.Get(), POLLIN, 0}};
        poll(sources, isFull ? 1 : 2, isFull ? 10 : -1);
        Descriptor client = isFull ? Descriptor() : socket_.Accept();
        if (client.Get() >= 0) {
            Connection& connection = connections_.emplace_back();
            connection.thread =
                std::jthread([this, &connection, number, client = std::move(client)] {
                    Serve(connection, client, number);
                    connection.ended = true;
                });
            ++number;
        }
    }
}

// Shuts down the oldest connection without a request; its thread then reads the end of the stream.
void MessageServer::DropIdleConnection() {
    for (Connection& connection : connections_) {
        const std::lock_guard guard(connection.lock);
        if (connection.idleClient >= 0) {
            shutdown(std::exchange(connection.idleClient, -1), SHUT_RDWR);
            return;
        }
    }
}

void MessageServer::Connection::SetIdle(int client) {
    const std::lock_guard guard(lock);
    idleClient = client;
}

void MessageServer::Serve(Connection& connection, const Descriptor& client,
                          unsigned long long number) {
    connection.SetIdle(client.Get());
    Fields description = Fields().Add("connection", number);
    services_.events.Report("connect", description);
    if (TakeFault({"connection"}, description)) {
        AwaitRequest(client.Get()); // closing with unread data resets the connection
    } else {
        FrameReader reader;
        while (ReceiveRequests(connection, client.Get(), description, reader)) {
        }
    }
    connection.SetIdle(-1);
    services_.events.Report("disconnect", description);
}

// Receives bytes and answers the complete requests. False if the connection must be closed.
bool MessageServer::ReceiveRequests(Connection& connection, int client, Fields& description,
                                    FrameReader& reader) {
    std::string bytes;
    if (!ReceiveSome(client, bytes, wakeEvent_))
        return false;
    try {
        reader.Append(bytes);
        while (const auto payload = reader.TakePayload()) {
            connection.SetIdle(-1);
            if (!Answer(client, description, *payload))
                return false;
        }
        return true;
    } catch (const std::runtime_error& error) {
        description.Add("reason", error.what());
        services_.events.Report("bad-request", description);
        return false;
    }
}

bool MessageServer::Answer(int client, const Fields& description, const std::string& payload) {
    const Value request = Value::ParseXml(payload);
    const std::string command = request.FindString("command").value_or("");
    const Fields named = Fields(description).Add("command", command);
    services_.events.Report("request", DescribeRequest(named, request));
    const auto fault = TakeFault({command, "request"}, description);
    return SendReply(client, named, request, fault);
}

bool MessageServer::SendReply(int client, Fields description, const Value& request,
                              const std::optional<Fault>& fault) {
    Value reply = Value::MakeDictionary();
    if (!fault || fault->act)
        reply = services_.handle(request, stop_.get_token());
    if (fault && fault->kind == FaultKind::Error)
        reply = MakeErrorReply(*fault);
    if (fault && fault->kind == FaultKind::Close)
        return false;
    if (fault && fault->kind == FaultKind::Silence) {
        AwaitEnd(client);
        return false;
    }
    if (fault && fault->kind == FaultKind::Late)
        Pause(fault->after);
    services_.beforeReply(stop_.get_token());
    bool isSent = true;
    if (!request.IsTrue("no reply")) {
        services_.events.Report("reply", description.Add("code", FormatCode(reply)));
        isSent = SendPieces(client, EncodeWithFault(reply, fault), wakeEvent_);
    }
    services_.afterReply(request);
    return isSent;
}

std::optional<Fault> MessageServer::TakeFault(const std::vector<std::string_view>& targets,
                                              const Fields& description) {
    auto fault = services_.faults.Take(targets);
    if (fault) {
        Fields fields = description;
        fields.Add("on", targets.front()).Add("do", FaultName(fault->kind));
        services_.events.Report("fault", fields);
    }
    return fault;
}

void MessageServer::AwaitRequest(int client) const {
    pollfd sources[] = {{client, POLLIN, 0}, {wakeEvent_.Get(), POLLIN, 0}};
    poll(sources, 2, -1);
}

void MessageServer::Pause(std::chrono::milliseconds duration) const {
    pollfd source = {wakeEvent_.Get(), POLLIN, 0};
    poll(&source, 1, static_cast<int>(duration.count()));
}

void MessageServer::AwaitEnd(int client) const {
    std::string ignored;
    while (ReceiveSome(client, ignored, wakeEvent_))
        ignored.clear();
}

} // namespace simulator
