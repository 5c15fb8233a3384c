// The command build.

#include "changerctl/Commands.h"
#include "changerctl/Failure.h"
#include "changerctl/Notifications.h"
#include "changerctl/ProgressDisplay.h"
#include "changerctl/Requests.h"
#include "changerctl/Target.h"

namespace changerctl {
namespace {

// How long a build may show no status after its request was withdrawn, which is its first step.
constexpr std::chrono::seconds kStatusLimit(5);

/*
 * Follows a build by what the server shows:
 *
 *   request     status     meaning
 *   stands      none       the daemon has not begun
 *   withdrawn   none       the daemon begins, or has ended without a status
 *   any         shown      the build is under way
 *   any         gone       the build has ended
 *
 * The last step is often never shown, because the server merges notifications: a status that is
 * gone at 11 of 12 is no failure. With the connection the status is lost, too: the next server
 * shows it again when the build takes its next step.
 */
class BuildObserver {
public:
    BuildObserver(ChangerGuid changer, ColourChoice colour) : changer_(changer), display_(colour) {}

    // Reads the present state. True if the build has ended. Throws Failure if it was aborted, or
    // ended without a status.
    bool HasEnded(const Changer& changer) {
        if (const ClientStatus* status = changer.FindStatus(kBuildClient)) {
            display_.Show(MakeStatusLine(changer_, *status));
            isShown_ = true;
            isAborted_ = status->abortRequested.value_or(false);
            return false;
        }
        return isShown_ ? CheckEnd() : HasEndedUnseen(changer.isWanted);
    }

    // The connection to the server is lost.
    void Forget() {
        isShown_ = false;
        withdrawn_.reset();
    }

private:
    bool CheckEnd() const {
        if (isAborted_)
            throw Failure(ExitStatus::EndedOtherwise,
                          FormatGuid(changer_) + ": the build was aborted");
        return true;
    }

    bool HasEndedUnseen(bool isWanted) {
        using Clock = std::chrono::steady_clock;
        if (isWanted)
            withdrawn_.reset();
        else if (!withdrawn_)
            withdrawn_ = Clock::now();
        else if (Clock::now() - *withdrawn_ >= kStatusLimit)
            throw Failure(ExitStatus::EndedOtherwise,
                          FormatGuid(changer_) + ": the request is gone and no build is shown; "
                                                 "is the file system of the changer mounted?");
        return false;
    }

    ChangerGuid changer_;
    ProgressDisplay display_;
    bool isShown_ = false;   // a status was shown
    bool isAborted_ = false; // the last one had a request to abort
    std::optional<std::chrono::steady_clock::time_point> withdrawn_;
};

void AwaitBuild(Notifications& notifications, ChangerGuid guid, const Options& options) {
    BuildObserver observer(guid, options.colour);
    const auto hasEnded = [&] {
        if (!notifications.IsConnected()) {
            observer.Forget();
            return false;
        }
        const Changer* changer = FindChanger(notifications.Changers(), guid);
        return changer != nullptr && observer.HasEnded(*changer);
    };
    if (!notifications.WaitUntil(hasEnded, options.timeLimit))
        throw Failure(ExitStatus::TimedOut, FormatGuid(guid) + ": the build has not ended in time");
}

} // namespace

void Build(const Options& options) {
    if (options.isWithdrawal && options.waits)
        throw Failure(ExitStatus::Usage, "--withdraw has nothing to wait for");
    Notifications notifications;
    notifications.AwaitFirst(options.FirstNotificationLimit());
    const ChangerGuid guid =
        SelectChanger(notifications.Changers(), options.arguments).guid.value();
    RequestBuild(guid, !options.isWithdrawal);
    if (options.waits)
        AwaitBuild(notifications, guid, options);
}

} // namespace changerctl
