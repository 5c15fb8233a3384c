#ifndef PLATFORM_DATE_H
#define PLATFORM_DATE_H

/* The date as a value of property lists. Nothing public makes or reads one. */

#include "objects/Object.h"

#include <CoreFoundation/CFDate.h>

namespace cf {

struct Date : Object {
    static const Class kClass;

    CFAbsoluteTime absoluteTime;

    explicit Date(CFAbsoluteTime time) noexcept : Object(&kClass), absoluteTime(time) {}
};

} // namespace cf

#endif
