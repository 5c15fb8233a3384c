#include "testbed/OutputLog.h"

#include "testbed/Failure.h"
#include "testbed/Pattern.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace testbed {
namespace {

OutputLog::Test MatchOf(Stream stream, const std::string& pattern) {
    return [stream, expected = Pattern(pattern)](const Line& line) {
        return line.stream == stream && expected.Matches(line.text);
    };
}

} // namespace

const char* NameOf(Stream stream) {
    switch (stream) {
    case Stream::SystemLog:
        return "log";
    case Stream::DaemonOutput:
        return "daemon";
    case Stream::Server:
        return "server";
    case Stream::ServerOutput:
        return "server output";
    case Stream::CommandOutput:
        return "command";
    case Stream::CommandErrors:
        return "command's errors";
    case Stream::Helper:
        return "helper";
    }
    return "?";
}

OutputLog::OutputLog() : wakeUp_(eventfd(0, EFD_CLOEXEC)) {
    Require(static_cast<bool>(wakeUp_), "cannot create an event descriptor");
    thread_ = std::thread([this] { Run(); });
}

OutputLog::~OutputLog() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    eventfd_write(wakeUp_.Get(), 1);
    thread_.join();
}

OutputLog::SourceId OutputLog::AddLineSource(Stream stream, Descriptor pipe) {
    return AddSource(stream, std::move(pipe), nullptr);
}

OutputLog::SourceId OutputLog::AddDatagramSource(Stream stream, Descriptor socket, Edit edit) {
    return AddSource(stream, std::move(socket), edit);
}

OutputLog::SourceId OutputLog::AddSource(Stream stream, Descriptor descriptor, Edit editDatagram) {
    const std::lock_guard lock(mutex_);
    const SourceId id = nextId_++;
    sources_.push_back({id, stream, std::move(descriptor), editDatagram, {}});
    eventfd_write(wakeUp_.Get(), 1);
    return id;
}

bool OutputLog::HasEnded(SourceId id) const {
    return std::none_of(sources_.begin(), sources_.end(),
                        [id](const Source& source) { return source.id == id; });
}

void OutputLog::AwaitEndOf(SourceId id) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kTimeOut, [&] { return HasEnded(id); }))
        throw Failure("the output of a process did not end");
}

// Only this thread removes sources: its pointers to them stay valid without the mutex.
void OutputLog::Run() {
    std::vector<pollfd> polled;
    std::vector<Source*> sources;
    while (true) {
        polled.assign(1, {wakeUp_.Get(), POLLIN, 0});
        sources.clear();
        {
            const std::lock_guard lock(mutex_);
            if (stopping_)
                return;
            for (Source& source : sources_) {
                sources.push_back(&source);
                polled.push_back({source.descriptor.Get(), POLLIN, 0});
            }
        }
        poll(polled.data(), polled.size(), -1);
        if (polled[0].revents != 0) {
            eventfd_t count = 0;
            eventfd_read(wakeUp_.Get(), &count);
        }
        for (std::size_t i = 0; i < sources.size(); ++i) {
            if (polled[i + 1].revents != 0 && !ReadFrom(*sources[i])) {
                const std::lock_guard lock(mutex_);
                sources_.remove_if([ended = sources[i]](const Source& s) { return &s == ended; });
                changed_.notify_all();
            }
        }
    }
}

bool OutputLog::ReadFrom(Source& source) {
    std::array<char, 65536> buffer{};
    const ssize_t length = read(source.descriptor.Get(), buffer.data(), buffer.size());
    if (length <= 0 && source.editDatagram == nullptr) {
        if (!source.unfinished.empty())
            Append(source.stream, std::move(source.unfinished));
        return false;
    }
    if (length > 0) {
        source.unfinished.append(buffer.data(), static_cast<std::size_t>(length));
        TakeLinesFrom(source);
    }
    return true;
}

void OutputLog::TakeLinesFrom(Source& source) {
    if (source.editDatagram != nullptr) {
        Append(source.stream, source.editDatagram(std::exchange(source.unfinished, {})));
        return;
    }
    std::size_t end = 0;
    while ((end = source.unfinished.find('\n')) != std::string::npos) {
        Append(source.stream, source.unfinished.substr(0, end));
        source.unfinished.erase(0, end + 1);
    }
}

void OutputLog::Append(Stream stream, std::string text) {
    const std::lock_guard lock(mutex_);
    lines_.push_back({stream, std::move(text), false});
    changed_.notify_all();
}

// Searches from the line `next` on, and sets `next` to the line found or to the end of the list.
std::optional<Line> OutputLog::TakeFirst(const Test& test, std::size_t& next) {
    for (; next < lines_.size(); ++next) {
        Line& line = lines_[next];
        if (!line.taken && test(line)) {
            line.taken = true;
            return line;
        }
    }
    return std::nullopt;
}

std::optional<Line> OutputLog::AwaitUnless(const std::function<bool()>& isOver, const Test& test,
                                           const std::string& what) {
    std::unique_lock lock(mutex_);
    std::size_t next = 0;
    std::optional<Line> taken;
    const auto isDone = [&] { return (taken = TakeFirst(test, next)).has_value() || isOver(); };
    if (!changed_.wait_for(lock, kTimeOut, isDone))
        throw Failure("waited in vain for " + what);
    return taken;
}

Line OutputLog::Await(const Test& test, const std::string& what) {
    return *AwaitUnless([] { return false; }, test, what);
}

std::optional<Line> OutputLog::AwaitUntilEndOf(SourceId source, const Test& test,
                                               const std::string& what) {
    return AwaitUnless([&] { return HasEnded(source); }, test, what);
}

Line OutputLog::Await(Stream stream, const std::string& pattern) {
    return Await(MatchOf(stream, pattern), std::string(NameOf(stream)) + ": " + pattern);
}

std::optional<Line> OutputLog::TryTake(const Test& test) {
    const std::lock_guard lock(mutex_);
    std::size_t next = 0;
    return TakeFirst(test, next);
}

std::vector<Line> OutputLog::LinesFrom(std::size_t position) const {
    const std::lock_guard lock(mutex_);
    const auto first =
        lines_.begin() + static_cast<std::ptrdiff_t>(std::min(position, lines_.size()));
    return {first, lines_.end()};
}

std::size_t OutputLog::Size() const {
    const std::lock_guard lock(mutex_);
    return lines_.size();
}

void OutputLog::Discard(Stream stream) {
    const std::lock_guard lock(mutex_);
    std::erase_if(lines_, [stream](const Line& line) { return line.stream == stream; });
}

} // namespace testbed
