#include "testbed/Process.h"

#include "testbed/Failure.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <utility>

namespace testbed {
namespace {

class FileActions {
public:
    FileActions() {
        posix_spawn_file_actions_init(&actions_);
    }
    ~FileActions() {
        posix_spawn_file_actions_destroy(&actions_);
    }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    void Connect(const Descriptor& from, int to) {
        posix_spawn_file_actions_adddup2(&actions_, from.Get(), to);
    }
    void CloseFrom(int first) {
        posix_spawn_file_actions_addclosefrom_np(&actions_, first);
    }
    const posix_spawn_file_actions_t* Get() const {
        return &actions_;
    }

private:
    posix_spawn_file_actions_t actions_{};
};

std::vector<char*> PointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// Restores the default actions in the child: the test bed ignores SIGPIPE, and a program that a
// shell has started in the background ignores SIGINT and SIGQUIT.
class Attributes {
public:
    Attributes() {
        posix_spawnattr_init(&attributes_);
        sigset_t restored;
        sigemptyset(&restored);
        for (const int number : {SIGINT, SIGPIPE, SIGQUIT})
            sigaddset(&restored, number);
        posix_spawnattr_setsigdefault(&attributes_, &restored);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() {
        posix_spawnattr_destroy(&attributes_);
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    const posix_spawnattr_t* Get() const {
        return &attributes_;
    }

private:
    posix_spawnattr_t attributes_{};
};

pid_t Spawn(const Command& command, const FileActions& actions) {
    const Attributes attributes;
    pid_t pid = -1;
    errno =
        posix_spawn(&pid, command.program.c_str(), actions.Get(), attributes.Get(),
                    PointersTo(command.arguments).data(), PointersTo(command.environment).data());
    Require(errno == 0, "cannot start " + command.program);
    return pid;
}

} // namespace

Process::Pipe::Pipe() {
    int ends[2];
    Require(pipe2(ends, O_CLOEXEC) == 0, "cannot create a pipe");
    reader = Descriptor(ends[0]);
    writer = Descriptor(ends[1]);
}

Process::Process(const Command& command, OutputLog& outputLog, Stream output, Stream errors)
    : Process(command, outputLog, output, errors, Pipe()) {}

Process::Process(const Command& command, OutputLog& outputLog, Stream output, Stream errors,
                 const Terminal& terminal)
    : Process(command, outputLog, output, errors,
              Pipe(terminal.OpenReader(), terminal.OpenWriter())) {}

Process::Process(const Command& command, OutputLog& outputLog, Stream output, Stream errors,
                 Pipe out)
    : outputLog_(outputLog) {
    Pipe in;
    Pipe err;
    FileActions actions;
    actions.Connect(in.reader, STDIN_FILENO);
    actions.Connect(out.writer, STDOUT_FILENO);
    actions.Connect(err.writer, STDERR_FILENO);
    actions.CloseFrom(STDERR_FILENO + 1); // inherited ones may lack FD_CLOEXEC
    pid_ = Spawn(command, actions);
    pidDescriptor_ = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    input_ = std::move(in.writer);
    output_ = outputLog.AddLineSource(output, std::move(out.reader));
    errors_ = outputLog.AddLineSource(errors, std::move(err.reader));
}

Process::~Process() {
    if (!reaped_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool Process::Write(const std::string& line) const {
    const std::string text = line + "\n";
    return write(input_.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void Process::WriteLine(const std::string& line) const {
    Require(Write(line), "cannot write to a process: " + line);
}

// EPIPE is no error here: the process is about to end, and AwaitUntilEndOf returns nothing.
std::optional<Line> Process::WriteAndAwait(const std::string& line,
                                           const OutputLog::Test& isAnswer) const {
    Require(Write(line) || errno == EPIPE, "cannot write to a process: " + line);
    return outputLog_.AwaitUntilEndOf(output_, isAnswer, "the answer to: " + line);
}

void Process::Signal(int number) const {
    Require(!reaped_ && kill(pid_, number) == 0, "cannot send a signal");
}

bool Process::IsRunning() const {
    pollfd polled{pidDescriptor_.Get(), POLLIN, 0};
    return !reaped_ && poll(&polled, 1, 0) == 0;
}

void Process::Stop() const {
    Signal(SIGSTOP);
    AwaitStop();
}

void Process::Continue() const {
    Signal(SIGCONT);
}

// waitpid() has no time-out; poll it.
void Process::AwaitStop() const {
    const auto deadline = std::chrono::steady_clock::now() + kTimeOut;
    int status = 0;
    pid_t changed = 0;
    while ((changed = waitpid(pid_, &status, WUNTRACED | WNOHANG)) == 0) {
        if (std::chrono::steady_clock::now() > deadline)
            throw Failure("process " + std::to_string(pid_) + " does not stop");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    Require(changed == pid_ && WIFSTOPPED(status), "cannot await the stop of a process");
}

int Process::AwaitEnd() {
    if (reaped_)
        return status_;
    pollfd polled{pidDescriptor_.Get(), POLLIN, 0};
    const int timeOut = static_cast<int>(std::chrono::milliseconds(kTimeOut).count());
    if (poll(&polled, 1, timeOut) != 1)
        throw Failure("process " + std::to_string(pid_) + " does not end");
    Require(waitpid(pid_, &status_, 0) == pid_, "cannot reap a process");
    reaped_ = true;
    outputLog_.AwaitEndOf(output_);
    outputLog_.AwaitEndOf(errors_);
    return status_;
}

std::string DescribeEnd(int waitStatus) {
    return WIFEXITED(waitStatus) ? "exited with " + std::to_string(WEXITSTATUS(waitStatus))
                                 : "killed by signal " + std::to_string(WTERMSIG(waitStatus));
}

std::vector<std::string> MinimalEnvironment() {
    std::vector<std::string> environment;
    for (const char* name :
         {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
        if (const char* value = std::getenv(name))
            environment.push_back(std::string(name) + "=" + value);
    }
    return environment;
}

} // namespace testbed
