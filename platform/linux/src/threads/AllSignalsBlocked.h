#ifndef PLATFORM_ALLSIGNALSBLOCKED_H
#define PLATFORM_ALLSIGNALSBLOCKED_H

#include <csignal>

namespace process {

/* Blocks all signals of the calling thread for its lifetime. A thread that is created meanwhile
   inherits the mask, so signals go to the program's own threads only. */
class AllSignalsBlocked {
public:
    // Saves the signal mask of the calling thread.
    AllSignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    ~AllSignalsBlocked() {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

private:
    sigset_t before_ = {};
};

} // namespace process

#endif
