#ifndef PLATFORM_ALLSIGNALSBLOCKED_H
#define PLATFORM_ALLSIGNALSBLOCKED_H

#include <csignal>

namespace process {

/* While it lives, threads that are made get no signals: those are for the threads that the program
   knows of. */
class AllSignalsBlocked {
public:
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
