#ifndef TESTS_STRESS_CHANGERS_H
#define TESTS_STRESS_CHANGERS_H

/*
 * The changers of the server, and the notifications about them, made up anew each time. Some
 * changers are always there; the others come and go.
 */

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <string>

constexpr int kChangers = 6;
constexpr int kChangersThatStay = 3;
constexpr UInt16 kSlots = 4;
constexpr UInt16 kSlotsOfLongList = 5000; // of the first changer, in some notifications
constexpr UInt32 kDrives = 2;

constexpr UInt64 GuidOf(int changer) {
    return 0x9EDCBA9800000000 + static_cast<UInt64>(changer);
}
/* Whether the daemon, once it knows the changer, does so until the end of the storm. */
constexpr bool StaysKnown(UInt64 changerGUID) {
    return changerGUID < GuidOf(kChangersThatStay);
}

enum class Mood {
    kQuietStorm, // whatever a server says while all goes well
    kStorm,      // changers come and go, too
    kCalm,       // all changers are there, and nothing is to be done
    kNoChangers
};

class Changers {
public:
    void SetMood(Mood mood) {
        mood_ = mood;
    }
    Mood TheMood() const {
        return mood_;
    }

    struct Notification {
        std::string frame;
        bool hasInfo;
    };
    // For one thread at a time.
    Notification Compose();

private:
    void ComeAndGo(Mood mood);

    std::atomic<Mood> mood_ = Mood::kCalm;
    bool isThere_[kChangers] = {};
};

#endif
