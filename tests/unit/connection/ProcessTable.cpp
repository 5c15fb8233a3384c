#include "ProcessTable.h"

#include <gtest/gtest.h>

#include <sys/sysctl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <mutex>
#include <utility>

namespace {

struct Table {
    std::mutex mutex;
    std::vector<TableAnswer> answers;
    std::size_t calls = 0;
    timeval startTime = {};
};
Table g_table;

int AnswerOneProcess(const int* name, void* buffer, size_t* length) {
    EXPECT_TRUE(name[0] == 1 && name[1] == 14 && name[2] == 1);
    EXPECT_EQ(*length, sizeof(kinfo_proc));
    const std::lock_guard lock(g_table.mutex);
    auto* record = static_cast<kinfo_proc*>(buffer);
    const bool isKnown = g_table.startTime.tv_sec != 0 || g_table.startTime.tv_usec != 0;
    if (isKnown) {
        record->kp_proc.p_pid = name[3];
        record->kp_proc.p_starttime = g_table.startTime;
    }
    *length = isKnown ? sizeof *record : 0;
    return 0;
}

} // namespace

void AnswerProcessTable(std::vector<TableAnswer> answers) {
    const std::lock_guard lock(g_table.mutex);
    g_table.answers = std::move(answers);
    g_table.calls = 0;
}

void SetProcesses(std::vector<Process> processes) {
    AnswerProcessTable({{0, std::move(processes)}});
}

void SetStartTime(timeval startTime) {
    const std::lock_guard lock(g_table.mutex);
    g_table.startTime = startTime;
}

int CountTableCalls() {
    const std::lock_guard lock(g_table.mutex);
    return static_cast<int>(g_table.calls);
}

extern "C" {
int __wrap_sysctl(int* name, unsigned int nameLength, void* buffer, size_t* length, void* newValue,
                  size_t newLength) {
    if (nameLength == 4)
        return AnswerOneProcess(name, buffer, length);
    EXPECT_EQ(nameLength, 3u);
    EXPECT_TRUE(name[0] == 1 && name[1] == 14 && name[2] == 0);
    EXPECT_TRUE(newValue == nullptr && newLength == 0);

    const std::lock_guard lock(g_table.mutex);
    const std::size_t last = g_table.answers.size() - 1;
    const TableAnswer& answer = g_table.answers[std::min(g_table.calls++, last)];
    const std::size_t size = answer.processes.size() * sizeof(kinfo_proc);
    if (answer.error != 0) {
        errno = answer.error;
        return -1;
    }
    if (buffer == nullptr) {
        *length = size + sizeof(kinfo_proc) / 2; // spare capacity that no record uses
        return 0;
    }
    if (size > *length) {
        errno = ENOMEM;
        return -1;
    }
    auto* record = static_cast<kinfo_proc*>(buffer);
    for (const Process& process : answer.processes) {
        *record = {};
        record->kp_proc.p_pid = process.pid;
        process.name.copy(record->kp_proc.p_comm, MAXCOMLEN);
        ++record;
    }
    *length = size;
    return 0;
}
}
