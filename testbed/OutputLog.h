#ifndef TESTBED_OUTPUTLOG_H
#define TESTBED_OUTPUTLOG_H

/*
 * All output of a test run (system log, the daemon's own output, the server's events)
 * as one list of lines in the order of arrival.
 *
 * One thread reads all sources all the time, so no speaker ever blocks because nobody listens (the
 * kernel holds back whoever logs to a full /dev/log). Everybody else waits for lines on the list.
 */

#include "testbed/Descriptor.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace testbed {

enum class Stream { SystemLog, DaemonOutput, Server, ServerOutput, Helper };

struct Line {
    Stream stream;
    std::string text;
    bool taken = false;
};

class OutputLog {
public:
    using Test = std::function<bool(const Line&)>;
    using SourceId = std::size_t;
    using Edit = std::string (*)(const std::string&);

    OutputLog();
    ~OutputLog();
    OutputLog(const OutputLog&) = delete;
    OutputLog& operator=(const OutputLog&) = delete;

    // Takes lines from a pipe until it ends, or whole datagrams from a socket, edited, for ever.
    SourceId AddLineSource(Stream stream, Descriptor pipe);
    SourceId AddDatagramSource(Stream stream, Descriptor socket, Edit edit);
    void AwaitEndOf(SourceId source);

    // Marks the first line that nobody took and that passes the test as taken, and returns it;
    // waits for it. The overload without test takes a whole line that matches the pattern.
    Line Await(const Test& test, const std::string& what);
    Line Await(Stream stream, const std::string& pattern);

    // As Await, but returns nothing when the source ends without such a line.
    std::optional<Line> AwaitUntilEndOf(SourceId source, const Test& test, const std::string& what);

    // As Await, but only among the lines that have arrived.
    std::optional<Line> TryTake(const Test& test);

    // A copy of the lines from the given position on.
    std::vector<Line> LinesFrom(std::size_t position) const;
    std::size_t Size() const;

    // Drops what that stream has said so far. Positions change.
    void Discard(Stream stream);

private:
    struct Source {
        SourceId id;
        Stream stream;
        Descriptor descriptor;
        Edit editDatagram; // null for a stream of lines
        std::string unfinished;
    };

    SourceId AddSource(Stream stream, Descriptor descriptor, Edit editDatagram);
    void Run();
    bool ReadFrom(Source& source); // false when the source has ended
    void TakeLinesFrom(Source& source);
    void Append(Stream stream, std::string text);
    std::optional<Line> TakeFirst(const Test& test, std::size_t& next);
    bool HasEnded(SourceId source) const; // with the mutex held
    std::optional<Line> AwaitUnless(const std::function<bool()>& isOver, const Test& test,
                                    const std::string& what);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Line> lines_;
    std::list<Source> sources_;
    SourceId nextId_ = 0;
    bool stopping_ = false;
    Descriptor wakeUp_;
    std::thread thread_;
};

const char* NameOf(Stream stream);

} // namespace testbed

#endif
