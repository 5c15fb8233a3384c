#include "common/WallClock.h"

double SecondsSince(time_t* start) {
    const time_t now = time(nullptr);
    if (now < *start)
        *start = now;
    return difftime(now, *start);
}
