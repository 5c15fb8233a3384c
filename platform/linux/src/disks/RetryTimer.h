#ifndef PLATFORM_RETRYTIMER_H
#define PLATFORM_RETRYTIMER_H

namespace disks {

/* A descriptor that becomes readable a second after it was set, whatever happens to the wall
   clock. Setting it needs no memory: it is for what failed for want of that, too. */
class RetryTimer {
public:
    RetryTimer() noexcept;
    RetryTimer(const RetryTimer&) = delete;
    RetryTimer& operator=(const RetryTimer&) = delete;
    ~RetryTimer();

    // Negative when none could be made.
    int Descriptor() const noexcept {
        return descriptor_;
    }

    void Set() noexcept;
    void Clear() noexcept;

private:
    const int descriptor_;
};

} // namespace disks

#endif
