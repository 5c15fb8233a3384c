#include "FakeCommands.h"

#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus.h"
#include "Journal.h"
#include "ShownReport.h"
#include "StateLock.h"

#include <gtest/gtest.h>

#include <mutex>
#include <utility>
#include <vector>

namespace {

struct Failure {
    std::string command;
    int countdown;
};
std::mutex g_mutex;
std::vector<Failure> g_failures;
std::function<void(std::string_view)> g_onCommand;
FSCacheStatusReport* g_shownReport = nullptr; // the last one, until it is cleared
FSCacheStatusReport* g_unclearedReport = nullptr;

bool IsFailing(std::string_view command) {
    const std::lock_guard lock(g_mutex);
    for (Failure& failure : g_failures)
        if (command.starts_with(failure.command) && --failure.countdown == 0)
            return true;
    return false;
}

const char* Lock() {
    return StateLock::IsHeld() ? " (locked)" : "";
}

} // namespace

VErrLink* AnswerCommand(std::string_view entry) {
    if (g_onCommand)
        g_onCommand(entry);
    VErrLink* err = nullptr;
    if (IsFailing(entry))
        VErrRaise(VErrThrowWithErrCode(&err, kVErrCodeConnectionLost, "fail on purpose"),
                  "test/FakeCommands", __func__, __LINE__);
    return err;
}

VErrLink* ChangerServerRequestMediaIdentification(UInt64 changerGUID, UInt16 storageElem,
                                                  Boolean request) {
    return AnswerCommand(Journal::Add("%s disc %016llX/%u%s", request ? "request" : "withdraw",
                                      changerGUID, storageElem, Lock()));
}

VErrLink* ChangerServerRequestChangerIdentification(UInt64 changerGUID, Boolean request) {
    return AnswerCommand(Journal::Add("%s changer %016llX%s", request ? "request" : "withdraw",
                                      changerGUID, Lock()));
}

VErrLink* ChangerServerMountDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 const char* partitionId, const char* clientName, UInt32 flags,
                                 UInt32 privateFamily, char* mountPath, CFIndex mountPathSize,
                                 char* deviceId, CFIndex deviceIdSize) {
    EXPECT_EQ(mountPath, nullptr);
    EXPECT_EQ(mountPathSize, 0);
    EXPECT_EQ(deviceId, nullptr);
    EXPECT_EQ(deviceIdSize, 0);
    return AnswerCommand(Journal::Add(
        "mount %016llX/%u within %g s, partition \"%s\", client \"%s\", "
        "flags %u, family %u%s",
        changerGUID, storageElem, timeout, partitionId, clientName, flags, privateFamily, Lock()));
}

VErrLink* ChangerServerEjectDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 UInt32 flags, SInt32 privateFamily) {
    return AnswerCommand(Journal::Add("eject %016llX/%u within %g s, flags %u, family %d%s",
                                      changerGUID, storageElem, timeout, flags, privateFamily,
                                      Lock()));
}

VErrLink* ChangerServerSetClientStatus(UInt64 changerGUID, const char* clientName,
                                       const char* message, UInt16 currentStep, UInt16 maximumStep,
                                       Boolean abortRequested) {
    {
        const std::lock_guard lock(g_mutex);
        g_shownReport = ReportOf(message);
    }
    return AnswerCommand(Journal::Add("show %016llX %s \"%s\" %u/%u%s%s", changerGUID, clientName,
                                      message, currentStep, maximumStep,
                                      abortRequested ? " abort" : "", Lock()));
}

VErrLink* ChangerServerClearClientStatus(UInt64 changerGUID, const char* clientName) {
    VErrLink* err =
        AnswerCommand(Journal::Add("clear %016llX %s%s", changerGUID, clientName, Lock()));
    const std::lock_guard lock(g_mutex);
    FSCacheStatusReport* shown = std::exchange(g_shownReport, nullptr);
    g_unclearedReport = err != nullptr ? shown : nullptr;
    return err;
}

void FakeCommands::Reset() {
    const std::lock_guard lock(g_mutex);
    g_failures.clear();
    g_onCommand = nullptr;
    g_shownReport = nullptr;
    g_unclearedReport = nullptr;
}

void FakeCommands::Fail(const std::string& command, int nth) {
    const std::lock_guard lock(g_mutex);
    g_failures.push_back({command, nth});
}

void FakeCommands::OnCommand(std::function<void(std::string_view)> function) {
    g_onCommand = std::move(function);
}

FSCacheStatusReport* FakeCommands::TakeUnclearedReport() {
    const std::lock_guard lock(g_mutex);
    g_shownReport = nullptr;
    return std::exchange(g_unclearedReport, nullptr);
}
