/* For programs whose tests fire no daily timer, which DailyTimerTest covers. */

#include "trayprobed/ChangerFSCacheThread.h"

#include <gtest/gtest.h>

VErrLink* StartChangerFSCache(UInt64) {
    ADD_FAILURE() << "no timer fires here";
    return nullptr;
}
