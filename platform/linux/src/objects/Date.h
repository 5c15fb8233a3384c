#ifndef PLATFORM_DATE_H
#define PLATFORM_DATE_H

/* The dates of property lists. No public function creates or reads one, so there is no public type.
 */

#include "objects/Object.h"

#include <CoreFoundation/CFDate.h>

namespace cf {

struct Date : Object {
    static const Class kClass;

    CFAbsoluteTime absoluteTime;

    // In seconds since the reference date of CFDate.h.
    explicit Date(CFAbsoluteTime time) noexcept : Object(&kClass), absoluteTime(time) {}
};

} // namespace cf

#endif
