// The command abort. It must never leave a status where no build is: see BuildAbort.h.

#include "changerctl/BuildAbort.h"
#include "changerctl/Commands.h"
#include "changerctl/Failure.h"
#include "changerctl/Interruption.h"
#include "changerctl/Notifications.h"
#include "changerctl/PrintableText.h"
#include "changerctl/ProgressDisplay.h"
#include "changerctl/Requests.h"
#include "changerctl/Target.h"

#include <cstdio>

namespace changerctl {
namespace {

using Phase = BuildAbort::Phase;
using Clock = BuildAbort::Clock;

// How long the status may stay as it is. A build sees the request after the directory that it
// reads, for which the robot may have to fetch a disc.
constexpr std::chrono::seconds kAnswerLimit(60);

// An empty message would remove the status.
constexpr const char* kBuildMessage = "Building changer directory cache";

class Command {
public:
    Command(Notifications& notifications, const Options& options);
    void Run();
    void WithdrawStale();

private:
    [[noreturn]] void FailWithNothingTo(const char* verb) const;
    const ClientStatus* ShownStatus() const;
    void Send();
    void Follow();
    bool HasEnded();
    std::string WithdrawBecause(const std::string& reason) const;
    void Withdraw() const;

    Notifications& notifications_;
    const ChangerGuid changer_;
    const Clock::duration answerLimit_;
    BuildAbort abort_;
    std::optional<ProgressDisplay> display_;
};

Command::Command(Notifications& notifications, const Options& options)
    : notifications_(notifications),
      changer_(SelectChanger(notifications.Changers(), options.arguments).guid.value()),
      answerLimit_(options.timeLimit.value_or(kAnswerLimit)) {
    if (options.waits)
        display_.emplace(options.colour);
}

void Command::FailWithNothingTo(const char* verb) const {
    throw Failure(ExitStatus::EndedOtherwise, FormatGuid(changer_) + ": nothing to " + verb + ": " +
                                                  kBuildClient + " shows no build");
}

const ClientStatus* Command::ShownStatus() const {
    const Changer* changer = FindChanger(notifications_.Changers(), changer_);
    return changer != nullptr ? changer->FindStatus(kBuildClient) : nullptr;
}

// A request that stands already is followed, not sent again.
void Command::Run() {
    const ClientStatus* status = ShownStatus();
    if (status == nullptr || !status->abortRequested)
        FailWithNothingTo("abort");
    const Interruption interruption;
    notifications_.SetObserver([this] { abort_.Notice(ShownStatus(), Clock::now()); });
    abort_.BeginRequest(Clock::now());
    if (*status->abortRequested)
        abort_.Notice(status, Clock::now());
    else
        Send();
    Follow();
}

// Whether a request without a reply was executed is unknown, so it is withdrawn.
void Command::Send() {
    const ClientStatus status = *ShownStatus();
    const std::string message = status.message.value_or("");
    abort_.BeginRequest(Clock::now());
    try {
        SetClientStatus(changer_,
                        {kBuildClient, message.empty() ? kBuildMessage : message,
                         status.currentStep.value_or(0), status.maximumStep.value_or(0), true});
    } catch (const Failure& failure) {
        if (failure.Status() == ExitStatus::TimedOut)
            throw Failure(failure.Status(), WithdrawBecause(failure.what()));
        throw;
    }
    abort_.EndRequest(Clock::now());
}

void Command::Follow() {
    try {
        notifications_.WaitUntil([this] { return HasEnded(); }, std::nullopt);
    } catch (const Interrupted&) {
        const std::string message = WithdrawBecause("interrupted");
        std::fprintf(stderr, "changerctl: %s\n", Printable(message).c_str());
        throw;
    }
}

bool Command::HasEnded() {
    const Clock::time_point now = Clock::now();
    const ClientStatus* status = ShownStatus();
    if (display_ && status != nullptr)
        display_->Show(MakeStatusLine(changer_, *status));
    if (!notifications_.IsConnected())
        throw Failure(ExitStatus::EndedOtherwise,
                      WithdrawBecause("the connection to the server is lost"));
    const Phase phase = abort_.PhaseAt(now);
    if (phase == Phase::Stale)
        throw Failure(ExitStatus::EndedOtherwise,
                      WithdrawBecause("the build had ended before the request"));
    if (phase != Phase::Ended && abort_.QuietSince(now) >= answerLimit_)
        throw Failure(ExitStatus::TimedOut, WithdrawBecause("no build answers"));
    if (phase == Phase::Replaced && status != nullptr)
        Send();
    return phase == Phase::Ended;
}

// Withdraws the request; returns the message that says so, and why.
std::string Command::WithdrawBecause(const std::string& reason) const {
    const std::string message = FormatGuid(changer_) + ": " + reason + "; the request to abort ";
    try {
        Withdraw();
        return message + "was withdrawn";
    } catch (const Failure& failure) {
        return message + "could not be withdrawn: " + failure.what();
    }
}

void Command::Withdraw() const {
    SetClientStatus(changer_, {kBuildClient, "", 0, 0, false});
}

void Command::WithdrawStale() {
    const ClientStatus* status = ShownStatus();
    if (status == nullptr || !status->abortRequested.value_or(false))
        FailWithNothingTo("withdraw");
    Withdraw();
}

} // namespace

void Abort(const Options& options) {
    Notifications notifications;
    notifications.AwaitFirst(options.FirstNotificationLimit());
    Command command(notifications, options);
    if (options.isWithdrawal)
        command.WithdrawStale();
    else
        command.Run();
}

} // namespace changerctl
