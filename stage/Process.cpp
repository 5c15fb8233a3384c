#include "stage/Process.h"

#include "stage/Failure.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace stage {
namespace {

struct Pipe {
    Descriptor reader;
    Descriptor writer;

    Pipe() {
        int ends[2];
        Require(pipe2(ends, O_CLOEXEC) == 0, "cannot create a pipe");
        reader = Descriptor(ends[0]);
        writer = Descriptor(ends[1]);
    }
};

class FileActions {
public:
    FileActions() {
        posix_spawn_file_actions_init(&m_actions);
    }
    ~FileActions() {
        posix_spawn_file_actions_destroy(&m_actions);
    }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    void Connect(const Descriptor& from, int to) {
        posix_spawn_file_actions_adddup2(&m_actions, from.Get(), to);
    }
    void CloseFrom(int first) {
        posix_spawn_file_actions_addclosefrom_np(&m_actions, first);
    }
    const posix_spawn_file_actions_t* Get() const {
        return &m_actions;
    }

private:
    posix_spawn_file_actions_t m_actions{};
};

std::vector<char*> PointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

// The child gets the default action for SIGPIPE back, which the stage itself ignores.
class Attributes {
public:
    Attributes() {
        posix_spawnattr_init(&m_attributes);
        sigset_t pipeOnly;
        sigemptyset(&pipeOnly);
        sigaddset(&pipeOnly, SIGPIPE);
        posix_spawnattr_setsigdefault(&m_attributes, &pipeOnly);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() {
        posix_spawnattr_destroy(&m_attributes);
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    const posix_spawnattr_t* Get() const {
        return &m_attributes;
    }

private:
    posix_spawnattr_t m_attributes{};
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

Process::Process(const Command& command, Record& record, Voice output, Voice errors)
    : m_record(record) {
    Pipe in;
    Pipe out;
    Pipe err;
    FileActions actions;
    actions.Connect(in.reader, STDIN_FILENO);
    actions.Connect(out.writer, STDOUT_FILENO);
    actions.Connect(err.writer, STDERR_FILENO);
    actions.CloseFrom(STDERR_FILENO + 1); // what this process has inherited itself
    m_pid = Spawn(command, actions);
    m_pidDescriptor = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0)));
    m_input = std::move(in.writer);
    m_output = record.ListenToLines(output, std::move(out.reader));
    m_errors = record.ListenToLines(errors, std::move(err.reader));
}

Process::~Process() {
    if (!m_reaped) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void Process::Tell(const std::string& line) const {
    const std::string text = line + "\n";
    const ssize_t written = write(m_input.Get(), text.data(), text.size());
    Require(written == static_cast<ssize_t>(text.size()), "cannot tell process: " + line);
}

void Process::Signal(int number) const {
    Require(!m_reaped && kill(m_pid, number) == 0, "cannot send a signal");
}

bool Process::IsRunning() const {
    pollfd polled{m_pidDescriptor.Get(), POLLIN, 0};
    return !m_reaped && poll(&polled, 1, 0) == 0;
}

int Process::AwaitEnd() {
    if (m_reaped) {
        return m_status;
    }
    pollfd polled{m_pidDescriptor.Get(), POLLIN, 0};
    const int patience = static_cast<int>(std::chrono::milliseconds(kPatience).count());
    if (poll(&polled, 1, patience) != 1) {
        throw Failure("process " + std::to_string(m_pid) + " does not end");
    }
    Require(waitpid(m_pid, &m_status, 0) == m_pid, "cannot reap a process");
    m_reaped = true;
    m_record.AwaitEndOf(m_output);
    m_record.AwaitEndOf(m_errors);
    return m_status;
}

std::string DescribeEnd(int waitStatus) {
    return WIFEXITED(waitStatus) ? "exited with " + std::to_string(WEXITSTATUS(waitStatus))
                                 : "killed by signal " + std::to_string(WTERMSIG(waitStatus));
}

std::vector<std::string> PlainEnvironment() {
    std::vector<std::string> environment;
    for (const char* name :
         {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
        if (const char* value = std::getenv(name)) {
            environment.push_back(std::string(name) + "=" + value);
        }
    }
    return environment;
}

} // namespace stage
