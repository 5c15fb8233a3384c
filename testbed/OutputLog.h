#ifndef TESTBED_OUTPUTLOG_H
#define TESTBED_OUTPUTLOG_H

/*
 * Collects all output of a test run (system log, the daemon's output, the simulator's events) as
 * one list of lines in the order of arrival.
 *
 * A background thread reads all sources at all times; a process never blocks on a full pipe or on a
 * full /dev/log. Tests wait for lines on the list and mark them as taken. All public functions may
 * be called on any thread.
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

/* Where a line comes from. */
enum class Stream {
    SystemLog,
    DaemonOutput,
    Server,
    ServerOutput,
    CommandOutput,
    CommandErrors,
    Helper
};

/* A line of output, without the newline. */
struct Line {
    Stream stream;
    std::string text;
    bool taken = false; // a test has awaited the line
};

class OutputLog {
public:
    using Test = std::function<bool(const Line&)>;
    using SourceId = std::size_t;
    using Edit = std::string (*)(const std::string&);

    // Starts the background thread; the destructor stops it.
    OutputLog();
    ~OutputLog();
    OutputLog(const OutputLog&) = delete;
    OutputLog& operator=(const OutputLog&) = delete;

    // Reads lines from `pipe` until end of file.
    SourceId AddLineSource(Stream stream, Descriptor pipe);
    // Reads datagrams from `socket` for as long as this object exists; edit(datagram) is the line.
    SourceId AddDatagramSource(Stream stream, Descriptor socket, Edit edit);
    // Waits until the source has ended and all of its lines are on the list. Throws Failure after
    // kTimeOut.
    void AwaitEndOf(SourceId source);

    // Waits for a line that is not taken and passes the test, marks the first such line as taken
    // and returns it. Throws Failure after kTimeOut, with `what` in its message. The test runs with
    // the list locked.
    Line Await(const Test& test, const std::string& what);
    // As above, for a whole line of the stream that matches the pattern (see Pattern).
    Line Await(Stream stream, const std::string& pattern);

    // As Await, but returns nothing if the source ends without such a line.
    std::optional<Line> AwaitUntilEndOf(SourceId source, const Test& test, const std::string& what);

    // As Await, but does not wait: returns nothing if there is no such line yet.
    std::optional<Line> TryTake(const Test& test);

    // Returns a copy of the lines from `position` on, taken or not.
    std::vector<Line> LinesFrom(std::size_t position) const;
    // The number of lines.
    std::size_t Size() const;

    // Deletes the stream's lines so far. This changes the positions of other lines.
    void Discard(Stream stream);

private:
    struct Source {
        SourceId id;
        Stream stream;
        Descriptor descriptor;
        Edit editDatagram;      // null for a source of lines
        std::string unfinished; // the bytes after the last newline
    };

    SourceId AddSource(Stream stream, Descriptor descriptor, Edit editDatagram);
    void Run();
    bool ReadFrom(Source& source); // returns false if the source has ended
    void TakeLinesFrom(Source& source);
    void Append(Stream stream, std::string text);
    std::optional<Line> TakeFirst(const Test& test, std::size_t& next);
    bool HasEnded(SourceId source) const; // mutex_ must be locked
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

/* Returns the stream's name for messages: a string literal. */
const char* NameOf(Stream stream);

} // namespace testbed

#endif
