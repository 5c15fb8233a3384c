#include "changerctl/BuildAbort.h"

#include <algorithm>

namespace changerctl {
namespace {

// How long a status that is gone may take to come back by a request that was sent before: the reply
// and the notification take different sockets.
constexpr std::chrono::seconds kReturnLimit(1);

} // namespace

void BuildAbort::BeginRequest(Clock::time_point now) {
    phase_ = Phase::Requested;
    isReplied_ = false;
    lastChange_ = now;
}

void BuildAbort::EndRequest(Clock::time_point now) {
    isReplied_ = true;
    gone_ = now;
}

void BuildAbort::Notice(const ClientStatus* status, Clock::time_point now) {
    const std::optional<ClientStatus> shown =
        status != nullptr ? std::optional(*status) : std::nullopt;
    if (shown != last_)
        lastChange_ = now;
    last_ = shown;
    if (status == nullptr)
        NoticeNone(now);
    else
        NoticeStatus(status->abortRequested.value_or(false));
}

void BuildAbort::NoticeNone(Clock::time_point now) {
    if (phase_ == Phase::Standing)
        phase_ = Phase::Ended;
    if (phase_ == Phase::Requested || phase_ == Phase::Replaced) {
        phase_ = Phase::Gone;
        gone_ = std::max(gone_, now);
    }
}

void BuildAbort::NoticeStatus(bool abortRequested) {
    switch (phase_) {
    case Phase::Requested:
        if (abortRequested)
            phase_ = Phase::Standing;
        else if (isReplied_)
            phase_ = Phase::Replaced;
        break;
    case Phase::Standing:
    case Phase::Replaced:
        phase_ = abortRequested ? Phase::Standing : Phase::Replaced;
        break;
    case Phase::Gone:
        phase_ = abortRequested ? Phase::Stale : Phase::Ended;
        break;
    case Phase::Stale:
    case Phase::Ended:
        break;
    }
}

BuildAbort::Phase BuildAbort::PhaseAt(Clock::time_point now) const {
    const bool staysGone = phase_ == Phase::Gone && isReplied_ && now - gone_ >= kReturnLimit;
    return staysGone ? Phase::Ended : phase_;
}

} // namespace changerctl
