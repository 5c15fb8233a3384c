#ifndef CHANGERCTL_BUILDABORT_H
#define CHANGERCTL_BUILDABORT_H

/*
 * What becomes of a request to abort a build, by what the server shows.
 *
 * The request is a client status in the name of the daemon: it replaces the daemon's own. Where no
 * build is, it would stand for good, and the daemon would give up the listing of each disc that it
 * identifies. So the request is followed until it is answered, and withdrawn otherwise:
 *
 *   phase      the server shows       next phase
 *   Requested  an abort request       Standing
 *   Requested  no status              Gone: by the request, or before the request arrived
 *   Requested  a status without it    Requested; Replaced if the request was executed before
 *   Standing   no status              Ended: the daemon has answered
 *   Standing   a status without it    Replaced: the daemon's next report has overwritten it
 *   Gone       an abort request       Stale: the build had ended before the request arrived
 *   Gone       a status without it    Ended: that is another build
 *   Gone       nothing for a while    Ended
 */

#include "changerctl/Changer.h"

#include <chrono>

namespace changerctl {

class BuildAbort {
public:
    using Clock = std::chrono::steady_clock;
    enum class Phase { Requested, Standing, Replaced, Gone, Stale, Ended };

    // The request is about to be sent.
    void BeginRequest(Clock::time_point now);
    // The server has replied to the request: what it shows from now on includes the request.
    void EndRequest(Clock::time_point now);
    // The server shows this status of the daemon; null: none.
    void Notice(const ClientStatus* status, Clock::time_point now);

    // The phase at that time.
    Phase PhaseAt(Clock::time_point now) const;
    // The time since the last change of what the server shows, or since the request.
    Clock::duration QuietSince(Clock::time_point now) const {
        return now - lastChange_;
    }

private:
    void NoticeNone(Clock::time_point now);
    void NoticeStatus(bool abortRequested);

    Phase phase_ = Phase::Requested;
    bool isReplied_ = false;
    std::optional<ClientStatus> last_;
    Clock::time_point lastChange_;
    Clock::time_point gone_; // since when there is no status, or the reply
};

} // namespace changerctl

#endif
