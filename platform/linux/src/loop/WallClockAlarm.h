#ifndef PLATFORM_WALLCLOCKALARM_H
#define PLATFORM_WALLCLOCKALARM_H

#include "loop/Clock.h"
#include "loop/GLibPointers.h"

namespace cf {

/* Wakes a loop at a date of the wall clock, and whenever that clock is stepped. For the thread of
   the loop. */
class WallClockAlarm {
public:
    WallClockAlarm() noexcept = default;
    WallClockAlarm(const WallClockAlarm&) = delete;
    WallClockAlarm& operator=(const WallClockAlarm&) = delete;
    ~WallClockAlarm();

    // Sets the date at which `context` wakes up; kNever: no date, steps of the clock only. The
    // first call creates a timer descriptor. False on a shortage of descriptors: the caller must
    // read the clock from time to time. The context must outlive the alarm.
    bool Set(GMainContext* context, Nanoseconds date) noexcept;

    // True if the clock was stepped since the last ClearStepped().
    bool WasStepped() const noexcept {
        return stepped_;
    }
    // Resets WasStepped().
    void ClearStepped() noexcept {
        stepped_ = false;
    }

private:
    bool Open(GMainContext* context) noexcept;
    static gboolean OnExpiry(gint descriptor, GIOCondition condition, gpointer self) noexcept;

    int descriptor_ = -1;
    SourcePointer watch_;
    Nanoseconds date_ = kNever; // the date that the descriptor is set to
    bool stepped_ = false;
};

} // namespace cf

#endif
