#include "processes/ProcessTable.h"

#include "FaultSweep.h"
#include "ResourceUsage.h"
#include "support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::vector<int> kAllProcesses = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};

// Returns 0 or errno.
int Sysctl(std::vector<int> name, void* buffer, std::size_t& length, void* newValue = nullptr,
           std::size_t newLength = 0) {
    const auto nameLength = static_cast<unsigned>(name.size());
    errno = 0;
    return sysctl(name.data(), nameLength, buffer, &length, newValue, newLength) == -1 ? errno : 0;
}

std::vector<kinfo_proc> AllProcesses() {
    for (;;) {
        std::size_t length = 0;
        if (Sysctl(kAllProcesses, nullptr, length) != 0)
            return {};
        std::vector<kinfo_proc> table(length / sizeof(kinfo_proc));
        const int error = Sysctl(kAllProcesses, table.data(), length);
        if (error == ENOMEM)
            continue;
        table.resize(error == 0 ? length / sizeof(kinfo_proc) : 0);
        return table;
    }
}

std::optional<std::string> NameInTable(pid_t process) {
    for (const kinfo_proc& record : AllProcesses())
        if (record.kp_proc.p_pid == process)
            return record.kp_proc.p_comm;
    return std::nullopt;
}

// A child process of that name, killed by the destructor.
class Child : NotCopyable {
public:
    explicit Child(const char* name) {
        int named[2];
        EXPECT_EQ(pipe(named), 0);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, name);
            close(named[0]);
            close(named[1]);
            for (;;)
                pause();
        }
        close(named[1]);
        char nothing;
        EXPECT_EQ(read(named[0], &nothing, 1), 0);
        close(named[0]);
    }
    ~Child() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    pid_t Pid() const {
        return pid_;
    }
    void BecomeZombie() const {
        kill(pid_, SIGKILL);
        siginfo_t end;
        EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOWAIT), 0);
    }

private:
    pid_t pid_ = 0;
};

// A directory with the layout of /proc.
class FakeProcesses : NotCopyable {
public:
    ~FakeProcesses() {
        closedir(folder_);
    }

    void Add(const std::string& entry, const std::string& comm) const {
        tree_.MakeDirectory(entry);
        tree_.Write(entry + "/comm", comm);
    }
    void AddWithoutName(const std::string& entry) const {
        tree_.MakeDirectory(entry);
    }
    void AddStat(const std::string& entry, const std::string& stat) const {
        tree_.Write(entry + "/stat", stat);
    }
    // Processes 1 to `last`.
    void AddUpTo(int last) const {
        for (int pid = 1; pid <= last; ++pid)
            Add(std::to_string(pid), "some\n");
    }
    int ReadOne(pid_t process, kinfo_proc& record) const {
        return process::ReadProcess(folder_, process, record);
    }
    int Read(std::vector<kinfo_proc>& table) const {
        std::size_t count = table.size();
        const int error = process::ReadProcessTable(folder_, table.data(), count);
        if (error == 0)
            table.resize(count);
        return error;
    }
    int Probe(std::size_t& count) const {
        return process::ReadProcessTable(folder_, nullptr, count);
    }

private:
    const TemporaryTree tree_;
    DIR* const folder_ = opendir(tree_.Root().c_str());
};

TEST(ProcessTable, ChildrenHaveTheirCommandNames) {
    const Child first("carousel of 15c");
    const Child second("x");
    EXPECT_EQ(NameInTable(first.Pid()), "carousel of 15c");
    EXPECT_EQ(NameInTable(second.Pid()), "x");
}

TEST(ProcessTable, NamesKeepBlanksNewlinesAndMayBeEmpty) {
    const Child blanks(" a\nb\n");
    const Child nameless("");
    EXPECT_EQ(NameInTable(blanks.Pid()), " a\nb\n");
    EXPECT_EQ(NameInTable(nameless.Pid()), "");
}

TEST(ProcessTable, ZombieIsListedUntilReaped) {
    pid_t pid = 0;
    {
        const Child child("soon a zombie");
        pid = child.Pid();
        child.BecomeZombie();
        EXPECT_EQ(NameInTable(pid), "soon a zombie");
    }
    EXPECT_EQ(NameInTable(pid), std::nullopt);
}

TEST(ProcessTable, ProcessesAreListedButNotTheirThreads) {
    pid_t thread = 0;
    std::optional<std::string> name;
    std::thread([&] {
        thread = gettid();
        name = NameInTable(thread);
    }).join();
    EXPECT_NE(thread, getpid());
    EXPECT_EQ(name, std::nullopt);
    EXPECT_TRUE(NameInTable(getpid()));
}

TEST(ProcessTable, IsInAscendingOrder) {
    const auto pidOf = [](const kinfo_proc& record) { return record.kp_proc.p_pid; };
    EXPECT_TRUE(std::ranges::is_sorted(AllProcesses(), {}, pidOf));

    const FakeProcesses processes;
    for (const char* entry : {"30", "4", "200", "1000000"})
        processes.Add(entry, "some\n");
    std::vector<kinfo_proc> table(4);
    ASSERT_EQ(processes.Read(table), 0);
    EXPECT_TRUE(std::ranges::is_sorted(table, {}, pidOf));
}

TEST(ProcessTable, VanishedProcessesAndOtherEntriesAreLeftOut) {
    const FakeProcesses processes;
    processes.Add("7", "server\n");
    processes.Add("self", "no\n");
    processes.Add("7a", "no\n");
    processes.Add("-7", "no\n");
    processes.Add("99999999999", "no\n");
    processes.AddWithoutName("8");
    std::vector<kinfo_proc> table(8);
    ASSERT_EQ(processes.Read(table), 0);
    ASSERT_EQ(table.size(), 1U);
    EXPECT_EQ(table[0].kp_proc.p_pid, 7);
    EXPECT_STREQ(table[0].kp_proc.p_comm, "server");
}

TEST(ProcessTable, FirstProcessIsListed) {
    const FakeProcesses processes;
    processes.AddUpTo(8);
    std::size_t count = 0;
    EXPECT_EQ(processes.Probe(count), 0);
    EXPECT_EQ(count, 8U + 1U + 16U);
    std::vector<kinfo_proc> table(8);
    ASSERT_EQ(processes.Read(table), 0);
    ASSERT_EQ(table.size(), 8U);
    EXPECT_EQ(table[0].kp_proc.p_pid, 1);
}

TEST(ProcessTable, LongNamesOfKernelThreadsAreCut) {
    const FakeProcesses processes;
    processes.Add("2", "kworker/u8:3-events_unbound\n");
    std::vector<kinfo_proc> table(1);
    ASSERT_EQ(processes.Read(table), 0);
    EXPECT_STREQ(table[0].kp_proc.p_comm, "kworker/u8:3-eve");
}

TEST(ProcessTable, TooSmallBufferFailsWithEnomem) {
    const FakeProcesses processes;
    processes.AddUpTo(3);
    std::vector<kinfo_proc> tooSmall(2);
    std::vector<kinfo_proc> justRight(3);
    EXPECT_EQ(processes.Read(tooSmall), ENOMEM);
    EXPECT_EQ(processes.Read(justRight), 0);

    kinfo_proc one = {};
    std::size_t length = 2 * sizeof one - 1; // one whole record fits
    EXPECT_EQ(Sysctl(kAllProcesses, &one, length), ENOMEM);
}

TEST(ProcessTable, ProbeAddsSpareRecords) {
    const FakeProcesses processes;
    processes.AddUpTo(100);
    std::size_t count = 0;
    EXPECT_EQ(processes.Probe(count), 0);
    EXPECT_EQ(count, 100U + 12U + 16U);
}

// Leaving out names is no error: the next read has them again.
TEST(ProcessTable, WithoutDescriptorsTableIsEmptyWithoutError) {
    {
        const DescriptorLimit none(0);
        std::size_t length = 0;
        EXPECT_EQ(Sysctl(kAllProcesses, nullptr, length), 0);
        std::vector<kinfo_proc> table(length / sizeof(kinfo_proc));
        EXPECT_EQ(Sysctl(kAllProcesses, table.data(), length), 0);
        EXPECT_EQ(length, 0U);
    }
    EXPECT_TRUE(NameInTable(getpid()));
}

TEST(ProcessTable, FailedSystemCallLeavesOutOneProcessOrFails) {
    const FakeProcesses processes;
    processes.Add("7", "server\n");
    processes.Add("8", "other\n");
    std::vector<kinfo_proc> table(2);
    int error = 0;
    for (const SystemCallFailure& failure : SystemCallFailures())
        SweepSystemCall(
            failure, [&] { error = processes.Read(table); },
            [&](const Fault& fault) {
                const bool ofDirectory = fault.function == "readdir";
                EXPECT_EQ(error, fault.happened && ofDirectory ? EIO : 0) << fault.what;
                EXPECT_EQ(table.size(), fault.happened && !ofDirectory ? 1U : 2U) << fault.what;
                table.resize(2);
            });
}

TEST(ProcessTable, ProbeReturnsErrorOfReadingDirectory) {
    const FakeProcesses processes;
    processes.Add("7", "server\n");
    std::size_t count = 99;
    int error = 0;
    for (const SystemCallFailure& failure : SystemCallFailures())
        SweepSystemCall(
            failure, [&] { error = processes.Probe(count); },
            [&](const Fault& fault) {
                EXPECT_EQ(error, fault.happened ? EIO : 0) << fault.what;
                EXPECT_EQ(count, fault.happened ? 99U : 17U) << fault.what;
                count = 99;
            });
}

// One process

int ReadOne(pid_t process, kinfo_proc& record, std::size_t& length) {
    return Sysctl({CTL_KERN, KERN_PROC, KERN_PROC_PID, process}, &record, length);
}

TEST(OneProcess, ChildHasItsNameAndStartTime) {
    const Child child("(S) 1 2) 3");
    kinfo_proc record = {};
    std::size_t length = sizeof record;
    ASSERT_EQ(ReadOne(child.Pid(), record, length), 0);
    EXPECT_EQ(length, sizeof record);
    EXPECT_EQ(record.kp_proc.p_pid, child.Pid());
    EXPECT_STREQ(record.kp_proc.p_comm, "(S) 1 2) 3");

    // The child started between the start of this program and now.
    kinfo_proc own = {};
    ASSERT_EQ(ReadOne(getpid(), own, length), 0);
    timespec sinceBoot = {};
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    EXPECT_FALSE(timercmp(&record.kp_proc.p_starttime, &own.kp_proc.p_starttime, <));
    EXPECT_LE(record.kp_proc.p_starttime.tv_sec, sinceBoot.tv_sec);
    EXPECT_GT(own.kp_proc.p_starttime.tv_sec, 0);
}

TEST(OneProcess, StartTimeIsTheSameAtEachReading) {
    kinfo_proc first = {};
    kinfo_proc second = {};
    std::size_t length = sizeof first;
    ASSERT_EQ(ReadOne(getpid(), first, length), 0);
    ASSERT_EQ(ReadOne(getpid(), second, length), 0);
    EXPECT_FALSE(timercmp(&first.kp_proc.p_starttime, &second.kp_proc.p_starttime, !=));
}

TEST(OneProcess, StartTimeIsField22OfStat) {
    const FakeProcesses processes;
    processes.Add("7", "a) b (c\n");
    processes.AddStat(
        "7", "7 (a) b (c) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 12345 23 24\n");
    kinfo_proc record = {};
    ASSERT_EQ(processes.ReadOne(7, record), 0);
    EXPECT_EQ(record.kp_proc.p_pid, 7);
    EXPECT_STREQ(record.kp_proc.p_comm, "a) b (c");
    const long ticks = sysconf(_SC_CLK_TCK);
    EXPECT_EQ(record.kp_proc.p_starttime.tv_sec, 12345 / ticks);
    EXPECT_EQ(record.kp_proc.p_starttime.tv_usec, 12345 % ticks * 1'000'000 / ticks);
}

TEST(OneProcess, MissingFilesOrFieldsFail) {
    const FakeProcesses processes;
    kinfo_proc record = {};
    EXPECT_EQ(processes.ReadOne(7, record), ENOENT);
    processes.Add("7", "a\n");
    EXPECT_EQ(processes.ReadOne(7, record), ENOENT);
    for (const char* stat : {"", "7", "7 (a) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21"}) {
        processes.AddStat("7", stat);
        EXPECT_EQ(processes.ReadOne(7, record), ESRCH) << stat;
    }
    processes.AddWithoutName("8");
    processes.AddStat("8", "8 (a) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23\n");
    EXPECT_EQ(processes.ReadOne(8, record), ESRCH);
}

TEST(OneProcess, EndedProcessWritesNothing) {
    pid_t pid = 0;
    {
        const Child child("soon gone");
        pid = child.Pid();
    }
    kinfo_proc record = {};
    record.kp_proc.p_pid = 1234;
    std::size_t length = sizeof record;
    EXPECT_EQ(ReadOne(pid, record, length), 0);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(record.kp_proc.p_pid, 1234);
}

TEST(OneProcess, BufferBelowOneRecordFailsAndNewValueIsRefused) {
    const std::vector<int> name = {CTL_KERN, KERN_PROC, KERN_PROC_PID, getpid()};
    kinfo_proc record = {};
    std::size_t length = 0;
    EXPECT_EQ(Sysctl(name, nullptr, length), 0);
    EXPECT_EQ(length, sizeof record);
    length = sizeof record - 1;
    EXPECT_EQ(ReadOne(getpid(), record, length), ENOMEM);
    EXPECT_EQ(Sysctl(name, &record, length, &record, sizeof record), EPERM);
}

TEST(OneProcess, WithoutDescriptorsReadFails) {
    const DescriptorLimit none(0);
    kinfo_proc record = {};
    std::size_t length = sizeof record;
    EXPECT_EQ(ReadOne(getpid(), record, length), EMFILE);
}

TEST(ProcessTable, UnknownNameFails) {
    std::size_t length = 0;
    EXPECT_EQ(Sysctl({CTL_KERN, KERN_PROC, 2}, nullptr, length), ENOENT);
    EXPECT_EQ(Sysctl({CTL_KERN, KERN_PROC}, nullptr, length), ENOENT);
    EXPECT_EQ(Sysctl({CTL_KERN, KERN_PROC, 2, getpid()}, nullptr, length), ENOENT);
}

TEST(ProcessTable, NewValueIsRefused) {
    std::size_t length = 0;
    int value = 0;
    EXPECT_EQ(Sysctl(kAllProcesses, nullptr, length, &value, sizeof value), EPERM);
    EXPECT_EQ(Sysctl({CTL_KERN, KERN_PROC, 2}, nullptr, length, &value, sizeof value), ENOENT);
}

} // namespace
