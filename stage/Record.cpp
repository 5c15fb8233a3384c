#include "stage/Record.h"

#include "stage/Failure.h"
#include "stage/Pattern.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace stage {
namespace {

Record::Test MatchOf(Voice voice, const std::string& pattern) {
    return [voice, expected = Pattern(pattern)](const Line& line) {
        return line.voice == voice && expected.Matches(line.text);
    };
}

} // namespace

const char* NameOf(Voice voice) {
    switch (voice) {
    case Voice::SystemLog:
        return "log";
    case Voice::DaemonOutput:
        return "daemon";
    case Voice::Server:
        return "server";
    case Voice::ServerOutput:
        return "server output";
    case Voice::Helper:
        return "helper";
    }
    return "?";
}

Record::Record() : wakeUp_(eventfd(0, EFD_CLOEXEC)) {
    Require(static_cast<bool>(wakeUp_), "cannot create an event descriptor");
    thread_ = std::thread([this] { Run(); });
}

Record::~Record() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    eventfd_write(wakeUp_.Get(), 1);
    thread_.join();
}

Record::SourceId Record::ListenToLines(Voice voice, Descriptor pipe) {
    return Listen(voice, std::move(pipe), nullptr);
}

Record::SourceId Record::ListenToDatagrams(Voice voice, Descriptor socket, Edit edit) {
    return Listen(voice, std::move(socket), edit);
}

Record::SourceId Record::Listen(Voice voice, Descriptor descriptor, Edit editDatagram) {
    const std::lock_guard lock(mutex_);
    const SourceId id = nextId_++;
    sources_.push_back({id, voice, std::move(descriptor), editDatagram, {}});
    eventfd_write(wakeUp_.Get(), 1);
    return id;
}

bool Record::HasEnded(SourceId id) const {
    return std::none_of(sources_.begin(), sources_.end(),
                        [id](const Source& source) { return source.id == id; });
}

void Record::AwaitEndOf(SourceId id) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kPatience, [&] { return HasEnded(id); }))
        throw Failure("the output of a process did not end");
}

// Only this thread removes sources, so that references to them stay good while it reads unlocked.
void Record::Run() {
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

bool Record::ReadFrom(Source& source) {
    std::array<char, 65536> buffer{};
    const ssize_t length = read(source.descriptor.Get(), buffer.data(), buffer.size());
    if (length <= 0 && source.editDatagram == nullptr) {
        if (!source.unfinished.empty())
            Append(source.voice, std::move(source.unfinished));
        return false;
    }
    if (length > 0) {
        source.unfinished.append(buffer.data(), static_cast<std::size_t>(length));
        TakeLinesFrom(source);
    }
    return true;
}

void Record::TakeLinesFrom(Source& source) {
    if (source.editDatagram != nullptr) {
        Append(source.voice, source.editDatagram(std::exchange(source.unfinished, {})));
        return;
    }
    std::size_t end = 0;
    while ((end = source.unfinished.find('\n')) != std::string::npos) {
        Append(source.voice, source.unfinished.substr(0, end));
        source.unfinished.erase(0, end + 1);
    }
}

void Record::Append(Voice voice, std::string text) {
    const std::lock_guard lock(mutex_);
    lines_.push_back({voice, std::move(text), false});
    changed_.notify_all();
}

// From the line next on, which it moves past the lines that do not pass.
std::optional<Line> Record::TakeFirst(const Test& test, std::size_t& next) {
    for (; next < lines_.size(); ++next) {
        Line& line = lines_[next];
        if (!line.taken && test(line)) {
            line.taken = true;
            return line;
        }
    }
    return std::nullopt;
}

std::optional<Line> Record::AwaitUnless(const std::function<bool()>& isOver, const Test& test,
                                        const std::string& what) {
    std::unique_lock lock(mutex_);
    std::size_t next = 0;
    std::optional<Line> taken;
    const auto isDone = [&] { return (taken = TakeFirst(test, next)).has_value() || isOver(); };
    if (!changed_.wait_for(lock, kPatience, isDone))
        throw Failure("waited in vain for " + what);
    return taken;
}

Line Record::Await(const Test& test, const std::string& what) {
    return *AwaitUnless([] { return false; }, test, what);
}

std::optional<Line> Record::AwaitUntilEndOf(SourceId source, const Test& test,
                                            const std::string& what) {
    return AwaitUnless([&] { return HasEnded(source); }, test, what);
}

Line Record::Await(Voice voice, const std::string& pattern) {
    return Await(MatchOf(voice, pattern), std::string(NameOf(voice)) + ": " + pattern);
}

std::optional<Line> Record::TakeIfThere(const Test& test) {
    const std::lock_guard lock(mutex_);
    std::size_t next = 0;
    return TakeFirst(test, next);
}

std::vector<Line> Record::Since(std::size_t position) const {
    const std::lock_guard lock(mutex_);
    const auto first =
        lines_.begin() + static_cast<std::ptrdiff_t>(std::min(position, lines_.size()));
    return {first, lines_.end()};
}

std::size_t Record::Size() const {
    const std::lock_guard lock(mutex_);
    return lines_.size();
}

void Record::Forget(Voice voice) {
    const std::lock_guard lock(mutex_);
    std::erase_if(lines_, [voice](const Line& line) { return line.voice == voice; });
}

} // namespace stage
