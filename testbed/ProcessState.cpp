#include "testbed/ProcessState.h"

#include "testbed/Descriptor.h"
#include "testbed/Failure.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <system_error>
#include <thread>

namespace testbed {
namespace {

std::filesystem::path ProcFolder(pid_t pid) {
    return "/proc/" + std::to_string(pid);
}

std::string WithoutInstance(const std::string& target) {
    const bool numbered = target.starts_with("socket:") || target.starts_with("pipe:");
    return numbered ? target.substr(0, target.find(':')) : target;
}

// Some architectures have only ppoll and epoll_pwait; C libraries use either call of a pair.
std::set<long> NumbersOf(SystemCall call) {
    switch (call) {
    case SystemCall::Connect:
        return {SYS_connect};
    case SystemCall::EpollWait:
        return {
#ifdef SYS_epoll_wait
            SYS_epoll_wait,
#endif
            SYS_epoll_pwait};
    case SystemCall::Poll:
        return {
#ifdef SYS_poll
            SYS_poll,
#endif
            SYS_ppoll};
    case SystemCall::Statfs:
        return {SYS_statfs};
    }
    throw Failure("no such system call");
}

bool IsInSystemCall(const std::filesystem::directory_entry& task, const std::set<long>& numbers) {
    std::ifstream file(task.path() / "syscall");
    long current = -1; // not changed for a running thread
    return file >> current && numbers.contains(current);
}

bool IsSocket(const std::filesystem::directory_entry& descriptor) {
    return std::filesystem::read_symlink(descriptor.path()).string().starts_with("socket:");
}

// Reads the counter through a duplicate of the other process's socket.
bool HasUnreadBytes(const Descriptor& process, int number) {
    const Descriptor socket(static_cast<int>(syscall(SYS_pidfd_getfd, process.Get(), number, 0)));
    Require(static_cast<bool>(socket), "cannot copy the socket of a process");
    int unread = 0;
    Require(ioctl(socket.Get(), SIOCOUTQ, &unread) == 0, "cannot read the send queue of a socket");
    return unread > 0;
}

// The kernel does not notify of state changes of another process; poll /proc.
void AwaitState(const std::function<bool()>& isReached, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + kTimeOut;
    while (!isReached()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw Failure("waited in vain for " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace

std::string ReadProcFile(pid_t pid, const std::string& name) {
    std::ifstream file(ProcFolder(pid) / name, std::ios::binary);
    Require(file.good(), "cannot read " + name + " of process " + std::to_string(pid));
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::set<pid_t> ListThreads(pid_t pid) {
    std::set<pid_t> threads;
    for (const auto& task : std::filesystem::directory_iterator(ProcFolder(pid) / "task"))
        threads.insert(std::stoi(task.path().filename().string()));
    return threads;
}

std::vector<std::string> ListDescriptors(pid_t pid) {
    std::vector<std::string> targets;
    for (const auto& entry : std::filesystem::directory_iterator(ProcFolder(pid) / "fd")) {
        std::error_code gone; // closed since it was listed
        const auto target = std::filesystem::read_symlink(entry.path(), gone);
        if (!gone)
            targets.push_back(WithoutInstance(target.string()));
    }
    std::sort(targets.begin(), targets.end());
    return targets;
}

std::size_t ReadAnonymousMemory(pid_t pid) {
    const std::string status = ReadProcFile(pid, "status");
    const std::string key = "\nRssAnon:";
    const std::size_t found = status.find(key);
    Require(found != std::string::npos, "no RssAnon in the status of a process");
    return std::stoul(status.substr(found + key.size())) * 1024; // the unit is kB
}

void AwaitThreadsInSystemCall(pid_t pid, SystemCall call, std::ptrdiff_t count) {
    const std::set<long> numbers = NumbersOf(call);
    const auto areThere = [&] {
        const std::filesystem::directory_iterator tasks(ProcFolder(pid) / "task");
        return std::count_if(begin(tasks), end(tasks), [&numbers](const auto& task) {
                   return IsInSystemCall(task, numbers);
               }) == count;
    };
    AwaitState(areThere, "threads in system call " + std::to_string(*numbers.begin()));
}

void AwaitSentBytesRead(pid_t pid) {
    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    const auto isRead = [&] {
        const std::filesystem::directory_iterator descriptors(ProcFolder(pid) / "fd");
        return std::none_of(begin(descriptors), end(descriptors), [&process](const auto& each) {
            return IsSocket(each) && HasUnreadBytes(process, std::stoi(each.path().filename()));
        });
    };
    AwaitState(isRead, "readers of what a process sent");
}

void AwaitEndOfOtherThreads(const std::set<pid_t>& threads, pid_t pid) {
    const auto hasNoOthers = [&] {
        const std::set<pid_t> current = ListThreads(pid);
        return std::includes(threads.begin(), threads.end(), current.begin(), current.end());
    };
    AwaitState(hasNoOthers, "the end of a thread");
}

} // namespace testbed
