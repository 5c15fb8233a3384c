#include "Server.h"

#include "Chance.h"
#include "SentLists.h"
#include "Tally.h"
#include "common/VErr.h"
#include "testbed/Failure.h"

#include "connection/Frames.h"

#include <linux/un.h> // the kernel's own address, where <sys/un.h> is that of BSD
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

using chance::Below;
using chance::OneIn;

namespace {

constexpr int kMessageServers = 6;

// A process is named after the file that it was started from.
pid_t StartNamedProcess() {
    static const std::string path = [] {
        const std::string name = "/tmp/carouseld";
        std::filesystem::create_symlink("/bin/sleep", name);
        return name;
    }();
    char name[] = "carouseld";
    char time[] = "infinity";
    char* arguments[] = {name, time, nullptr};
    char* environment[] = {nullptr};
    pid_t process = -1;
    errno = posix_spawn(&process, path.c_str(), nullptr, nullptr, arguments, environment);
    testbed::Require(errno == 0, "cannot start " + path);
    return process;
}

std::string PathOf(const char* prefix, pid_t process) {
    return prefix + std::to_string(process);
}

// After a while, in which the process is there and its sockets are not.
int Listen(const std::string& path) {
    chance::Pause(1000);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    testbed::Require(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                             0 &&
                         listen(listener, 128) == 0,
                     "cannot listen on " + path);
    return listener;
}

bool Send(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::size_t SomewhereIn(std::string_view bytes) {
    return static_cast<std::size_t>(Below(static_cast<int>(bytes.size())));
}

bool SendInPieces(int connection, std::string_view bytes) {
    const std::size_t cut = SomewhereIn(bytes);
    if (!Send(connection, bytes.substr(0, cut)))
        return false;
    chance::Pause(500);
    return Send(connection, bytes.substr(cut));
}

// Nothing when the client has closed.
std::string ReadRequest(int connection) {
    std::string bytes;
    char buffer[4096];
    while (bytes.find("</plist>\n") == std::string::npos) {
        const ssize_t length = recv(connection, buffer, sizeof buffer, 0);
        if (length <= 0)
            return {};
        bytes.append(buffer, static_cast<std::size_t>(length));
    }
    return bytes;
}

void AwaitEnd(int connection) {
    char buffer[64];
    while (recv(connection, buffer, sizeof buffer, 0) > 0) {
    }
}

std::string ErrorReply(VErrCode code) {
    return FrameOfList(Dictionary({{"error code", code}, {"error string", "on purpose"}}));
}

struct Request {
    Kind kind;
    bool isOfDisc;
};

Request ParseRequest(const std::string& text) {
    const auto has = [&](const char* part) { return text.find(part) != std::string::npos; };
    const bool isOfDisc = has("Storage Element Index");
    if (has("mount disc<"))
        return {Kind::kMount, isOfDisc};
    if (has("eject disc<"))
        return {Kind::kEject, isOfDisc};
    if (has("request identification<"))
        return {Kind::kWithdrawal, isOfDisc};
    return {has("Building changer directory cache") ? Kind::kStatusShown : Kind::kStatusCleared,
            isOfDisc};
}

void LetDown(int connection) {
    constexpr Kind kWays[] = {Kind::kErrorAnswer, Kind::kNoAnswer, Kind::kClosedUnanswered};
    const Kind way = kWays[Below(3)];
    tally::Count(way);
    if (way == Kind::kErrorAnswer)
        Send(connection, ErrorReply(kVErrFacilityBase + 1234));
    else if (way == Kind::kNoAnswer)
        AwaitEnd(connection);
}

void PutOff(int connection, bool isMount) {
    tally::Count(Kind::kServerBusy);
    const bool isUnderWay = isMount && OneIn(2);
    Send(connection, ErrorReply(isUnderWay ? kVErrCodeMountUnderWay : kVErrCodeServerBusy));
}

void Comply(int connection) {
    const std::string reply = FrameOfList(Dictionary());
    if (OneIn(4)) {
        tally::Count(Kind::kAnswerLate);
        chance::Pause(1000);
    }
    if (OneIn(4)) {
        tally::Count(Kind::kAnswerInPieces);
        SendInPieces(connection, reply);
    } else {
        Send(connection, reply);
    }
}

} // namespace

Server::Server(Changers& changers)
    : changers_(changers), process_(StartNamedProcess()),
      notifications_(Listen(PathOf("/tmp/carouseldn-", process_))),
      messages_(Listen(PathOf("/tmp/carouseld-", process_))) {
    threads_.emplace_back([this] { Notify(); });
    for (int i = 0; i < kMessageServers; ++i)
        threads_.emplace_back([this] { ServeMessages(); });
}

Server::~Server() {
    const bool processGoesFirst = OneIn(2);
    const auto endProcess = [&] {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    };
    if (processGoesFirst)
        endProcess();
    isDying_ = true;
    sent_lists::Wake();
    shutdown(notifications_, SHUT_RDWR); // wakes who waits for a connection
    shutdown(messages_, SHUT_RDWR);
    CutConnections();
    for (std::thread& thread : threads_)
        thread.join();
    close(notifications_);
    close(messages_);
    unlink(PathOf("/tmp/carouseldn-", process_).c_str());
    unlink(PathOf("/tmp/carouseld-", process_).c_str());
    if (!processGoesFirst)
        endProcess();
}

// ---- connections ----

int Server::Accept(int listener) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0)
        return -1;
    const std::lock_guard lock(mutex_);
    if (isDying_) {
        close(connection);
        return -1;
    }
    connections_.insert(connection);
    return connection;
}

void Server::Close(int connection) {
    const std::lock_guard lock(mutex_);
    connections_.erase(connection);
    close(connection);
}

void Server::CutConnections() {
    const std::lock_guard lock(mutex_);
    for (const int connection : connections_)
        shutdown(connection, SHUT_RDWR);
}

// ---- notifications ----

void Server::Notify() {
    int connection = -1;
    while ((connection = Accept(notifications_)) >= 0) {
        Push(connection);
        Close(connection);
    }
}

void Server::Push(int connection) {
    while (sent_lists::AwaitUnderWay(Below(6), isDying_)) {
        const auto [frame, hasInfo] = changers_.Compose();
        if (IsMoody() && OneIn(20)) {
            tally::Count(Kind::kNotificationCut);
            Send(connection, std::string_view(frame).substr(0, SomewhereIn(frame)));
            return;
        }
        if (!(OneIn(3) ? SendInPieces(connection, frame) : Send(connection, frame)))
            return;
        if (hasInfo) {
            sent_lists::NoteSent();
            tally::Count(Kind::kChangerInfo);
        }
        if (changers_.TheMood() == Mood::kCalm)
            chance::Pause(2000);
        if (IsMoody() && OneIn(20)) {
            tally::Count(Kind::kConnectionClosed);
            return;
        }
    }
}

// ---- requests ----

void Server::ServeMessages() {
    int connection = -1;
    while ((connection = Accept(messages_)) >= 0) {
        Answer(connection);
        Close(connection);
    }
}

void Server::Answer(int connection) {
    const std::string text = ReadRequest(connection);
    if (text.empty())
        return;
    const Request request = ParseRequest(text);
    tally::Count(request.kind);
    // A disc whose withdrawal fails is out of reach from then on, so that seldom happens.
    const bool isWithdrawalOfDisc = request.kind == Kind::kWithdrawal && request.isOfDisc;
    const bool isMount = request.kind == Kind::kMount;
    if (IsMoody() && OneIn(isWithdrawalOfDisc ? 100 : 10))
        LetDown(connection);
    else if ((isMount || request.kind == Kind::kEject) && OneIn(8))
        PutOff(connection, isMount);
    else
        Comply(connection);
}
