/*
 * Sessions.
 *
 * A session belongs to one run loop. Three sources wake the session: the monitor of the mount
 * table, a volume whose probe is done, and a timer of one second. The timer is set after a step
 * that failed for a shortage, and while the time-out of a probe is pending.
 *
 * Each wake-up runs one step: read the mount table if it may have changed, start the probes of new
 * disks, report one event. After an event the session signals itself for the next step, so the loop
 * can fire timers, perform other sources or stop between two events. One exception: the appearances
 * that a late appearance repeats are reported in the same step. Otherwise a client that runs
 * between them would use the older disk as the last one mounted.
 *
 * The sources perform in the outermost run only, because a callback may take locks that the code
 * below a nested run holds.
 *
 * Threads: only the thread of its loop uses a scheduled session.
 */

#include "disks/DiskList.h"
#include "disks/MountMonitor.h"
#include "loop/Clock.h"
#include "loop/RunLoop.h"

#include <DiskArbitration/DiskArbitration.h>

#include <sys/timerfd.h>
#include <unistd.h>

#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <string>

namespace {

constexpr const char* kMountTable = "/proc/self/mountinfo";
constexpr time_t kRetryDelay = 1; // seconds

struct Listener {
    DADiskAppearedCallback callback = nullptr; // DADiskDisappearedCallback is the same type
    void* context = nullptr;

    void Notify(DADiskRef disk) const {
        if (callback != nullptr)
            callback(disk, context);
    }
};

// Takes the source out of its loop: no callout follows.
struct InvalidateSource {
    void operator()(CFRunLoopSourceRef source) const noexcept {
        CFRunLoopSourceInvalidate(source);
        CFRelease(source);
    }
};
using SourcePointer = std::unique_ptr<__CFRunLoopSource, InvalidateSource>;

// A descriptor that becomes readable when a delay on the monotonic clock is over. Setting the delay
// allocates nothing, so it works after a shortage of memory too.
class RetryTimer {
public:
    RetryTimer() noexcept
        : descriptor_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}
    RetryTimer(const RetryTimer&) = delete;
    RetryTimer& operator=(const RetryTimer&) = delete;
    ~RetryTimer() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }

    // Negative if the kernel gave no descriptor.
    int Descriptor() const noexcept {
        return descriptor_;
    }

    // Sets one delay from now on; 0 disarms the timer.
    void Set(time_t seconds) noexcept {
        const itimerspec setting = {{0, 0}, {seconds, 0}};
        timerfd_settime(descriptor_, 0, &setting, nullptr);
    }

private:
    const int descriptor_;
};

} // namespace

struct __DASession : cf::Object {
    static const cf::Class kClass;

    // May throw std::bad_alloc.
    __DASession();

    // False after a shortage of descriptors or memory in the constructor.
    bool IsValid() const noexcept;

    Listener appeared;
    Listener disappeared;

    void Schedule(CFRunLoopRef runLoop, CFStringRef mode) noexcept;
    void Unschedule(CFRunLoopRef runLoop, CFStringRef mode) noexcept;

private:
    static void RunStep(void* session) noexcept;
    bool Update(cf::Nanoseconds now) noexcept;
    void ReportEvents(cf::Nanoseconds now) noexcept;

    disks::MountMonitor monitor_;
    RetryTimer retry_;
    const SourcePointer wakeSource_;
    const SourcePointer monitorSource_;
    const SourcePointer retrySource_;
    disks::VolumeProbes probes_;
    disks::DiskList disks_;
    bool isTableStale_ = true;
    bool isScheduled_ = false;
};

namespace {

void DestroySession(cf::Object* object) noexcept {
    delete static_cast<__DASession*>(object);
}

} // namespace

constinit const cf::Class __DASession::kClass = {DestroySession, nullptr, nullptr};

__DASession::__DASession()
    : cf::Object(&kClass),
      wakeSource_(cf::CreateSignalSource(cf::RunLevel::kOutermost, RunStep, this)),
      monitorSource_(cf::CreateDescriptorSource(monitor_.Descriptor(), cf::RunLevel::kOutermost,
                                                RunStep, this)),
      retrySource_(
          cf::CreateDescriptorSource(retry_.Descriptor(), cf::RunLevel::kOutermost, RunStep, this)),
      probes_(wakeSource_.get()) {}

bool __DASession::IsValid() const noexcept {
    return monitor_.Descriptor() >= 0 && retry_.Descriptor() >= 0 && wakeSource_ &&
           monitorSource_ && retrySource_;
}

void __DASession::Schedule(CFRunLoopRef runLoop, CFStringRef mode) noexcept {
    for (const SourcePointer* source : {&wakeSource_, &monitorSource_, &retrySource_})
        CFRunLoopAddSource(runLoop, source->get(), mode);
    isScheduled_ = true;
    cf::SignalSource(wakeSource_.get());
}

void __DASession::Unschedule(CFRunLoopRef runLoop, CFStringRef mode) noexcept {
    for (const SourcePointer* source : {&wakeSource_, &monitorSource_, &retrySource_})
        CFRunLoopRemoveSource(runLoop, source->get(), mode);
    isScheduled_ = false;
}

void __DASession::RunStep(void* info) noexcept {
    // The callback may release the session.
    const auto session = cf::Owned<__DASession>::Share(static_cast<__DASession*>(info));
    const cf::Nanoseconds now = cf::MonotonicNow();
    const bool mustRetry = !session->Update(now) || session->disks_.IsTimeoutPending(now);
    session->retry_.Set(mustRetry ? kRetryDelay : 0);
    // According to a stale table, a disk that has gone could still appear.
    if (!session->isTableStale_)
        session->ReportEvents(now);
}

// Reads the mount table if it may have changed and starts the probes of new disks. False if the
// step must be repeated.
bool __DASession::Update(cf::Nanoseconds now) noexcept {
    try {
        isTableStale_ = monitor_.ConsumeChanges() || isTableStale_;
        if (isTableStale_) {
            auto volumes = disks::ReadVolumes(kMountTable);
            if (!volumes)
                return false;
            disks_.Update(*volumes, now);
            isTableStale_ = false;
        }
        disks_.StartProbes(probes_);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// Calls the callback of the next event, if any. The callback may unschedule the session.
void __DASession::ReportEvents(cf::Nanoseconds now) noexcept {
    do {
        const disks::DiskEvent event = disks_.NextEvent(now);
        if (!event.disk)
            return;
        cf::SignalSource(wakeSource_.get());
        (event.appeared ? appeared : disappeared).Notify(event.disk.Get());
    } while (isScheduled_ && disks_.HasRepeats());
}

const CFStringRef kDADiskDescriptionVolumePathKey = CFSTR("DAVolumePath");

DASessionRef DASessionCreate(CFAllocatorRef) {
    try {
        auto session = cf::Owned<__DASession>::Adopt(new __DASession);
        return session->IsValid() ? session.Detach() : nullptr;
    } catch (const std::exception&) {
        return nullptr;
    }
}

void DARegisterDiskAppearedCallback(DASessionRef session, CFDictionaryRef,
                                    DADiskAppearedCallback callback, void* context) {
    if (auto* owner = cf::As<__DASession>(session))
        owner->appeared = {callback, context};
}

void DARegisterDiskDisappearedCallback(DASessionRef session, CFDictionaryRef,
                                       DADiskDisappearedCallback callback, void* context) {
    if (auto* owner = cf::As<__DASession>(session))
        owner->disappeared = {callback, context};
}

void DASessionScheduleWithRunLoop(DASessionRef session, CFRunLoopRef runLoop, CFStringRef mode) {
    if (auto* owner = cf::As<__DASession>(session))
        owner->Schedule(runLoop, mode);
}

void DASessionUnscheduleFromRunLoop(DASessionRef session, CFRunLoopRef runLoop, CFStringRef mode) {
    if (auto* owner = cf::As<__DASession>(session))
        owner->Unschedule(runLoop, mode);
}

const char* DADiskGetBSDName(DADiskRef disk) {
    const auto* known = cf::As<__DADisk>(disk);
    return known != nullptr ? known->name.c_str() : nullptr;
}

CFDictionaryRef DADiskCopyDescription(DADiskRef disk) {
    const auto* known = cf::As<__DADisk>(disk);
    if (known == nullptr)
        return nullptr;
    CFMutableDictionaryRef description = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    if (description == nullptr || !known->isPresent)
        return description;
    const std::string& path = known->volume.path;
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
        static_cast<CFIndex>(path.size()), true);
    if (url != nullptr) {
        CFDictionarySetValue(description, kDADiskDescriptionVolumePathKey, url);
        CFRelease(url);
    }
    return description;
}
