#ifndef TESTS_STRESS_CHANGERS_H
#define TESTS_STRESS_CHANGERS_H

/* Generates random notifications about the changers of the server. The first kPermanentChangers
   changers are always present; the others are added and removed. */

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <string>

constexpr int kChangers = 6;
constexpr int kPermanentChangers = 3;
constexpr UInt16 kSlots = 4;
constexpr UInt16 kSlotsOfLongList = 5000; // of the first changer, in some notifications
constexpr UInt32 kDrives = 2;

constexpr UInt64 GuidOf(int changer) {
    return 0x9EDCBA9800000000 + static_cast<UInt64>(changer);
}
/* True if the changer is never removed during churn. */
constexpr bool IsPermanent(UInt64 changerGUID) {
    return changerGUID < GuidOf(kPermanentChangers);
}

enum class Phase {
    kFaultFreeChurn, // random requests, no faults
    kChurn,          // changers are removed and added, too
    kIdle,           // all changers are present, without requests
    kNoChangers
};

class Changers {
public:
    void SetPhase(Phase phase) {
        phase_ = phase;
    }
    Phase CurrentPhase() const {
        return phase_;
    }

    struct Notification {
        std::string frame;
        bool hasInfo;
    };
    // One thread at a time.
    Notification Compose();

private:
    void AddAndRemoveChangers(Phase phase);

    std::atomic<Phase> phase_ = Phase::kIdle;
    bool isPresent_[kChangers] = {};
};

#endif
