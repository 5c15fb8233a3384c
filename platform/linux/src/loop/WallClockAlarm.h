#ifndef PLATFORM_WALLCLOCKALARM_H
#define PLATFORM_WALLCLOCKALARM_H

#include "loop/Clock.h"
#include "loop/GLibPointers.h"

namespace cf {

/* Wakes a loop at a date of the wall clock, and whenever that clock is stepped. */
class WallClockAlarm {
public:
    WallClockAlarm() noexcept = default;
    WallClockAlarm(const WallClockAlarm&) = delete;
    WallClockAlarm& operator=(const WallClockAlarm&) = delete;
    ~WallClockAlarm();

    // False when no descriptor is to be had: the caller looks at the clock again by itself.
    // kNever: no date.
    bool Set(GMainContext* context, Nanoseconds date) noexcept;

    // The clock was stepped. Stays so until it is taken note of.
    bool WasStepped() const noexcept {
        return stepped_;
    }
    void ClearStepped() noexcept {
        stepped_ = false;
    }

private:
    bool Open(GMainContext* context) noexcept;
    static gboolean OnExpiry(gint descriptor, GIOCondition condition, gpointer self) noexcept;

    int descriptor_ = -1;
    SourcePointer watch_;
    Nanoseconds date_ = kNever; // what the descriptor is set to
    bool stepped_ = false;
};

} // namespace cf

#endif
