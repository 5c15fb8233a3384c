#ifndef TESTS_UNIT_PLATFORM_TESTOBJECTS_H
#define TESTS_UNIT_PLATFORM_TESTOBJECTS_H

/* Access to the representation and the reference count of an object. */

#include "objects/Object.h"
#include "support/CFOwned.h"
#include "support/CFValues.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>

/* Too large for a tagged reference: a number of this value is an object. A double represents it
   exactly; the next double is 1,024 larger. */
constexpr std::int64_t kLarge = std::int64_t{1} << 62;

inline std::int32_t ReferencesTo(CFTypeRef object) {
    return cf::AsObject(object)->references;
}

#endif
