#include "KnownChangerLists.h"

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

// One entry per list returned, in an array: memory may be short. Equal lists are one object. Each
// entry stands for two references, the receiver's and this array's.
std::array<CFArrayRef, 100'000> g_lists;
std::size_t g_count = 0;

} // namespace

extern "C" {
VErrLink* __real__Z14GetChangerListPPK9__CFArray(CFArrayRef* list);

VErrLink* __wrap__Z14GetChangerListPPK9__CFArray(CFArrayRef* list) {
    VErrLink* err = __real__Z14GetChangerListPPK9__CFArray(list);
    if (*list != nullptr && g_count < g_lists.size()) {
        CFRetain(*list);
        g_lists[g_count++] = *list;
    }
    return err;
}
}

KnownChangerLists::KnownChangerLists() {
    g_count = 0;
}

KnownChangerLists::~KnownChangerLists() {
    EXPECT_LT(g_count, g_lists.size()) << "too many lists to record";
    const auto end = g_lists.begin() + static_cast<std::ptrdiff_t>(g_count);
    std::sort(g_lists.begin(), end);
    for (auto each = g_lists.begin(); each != end;) {
        const CFTypeRef list = *each;
        const auto next = std::find_if(each, end, [=](CFArrayRef other) { return other != list; });
        EXPECT_EQ(static_cast<const cf::Object*>(list)->references, 2 * (next - each))
            << "a list of known changers was not kept";
        for (; each != next; ++each) {
            CFRelease(list);
            CFRelease(list);
        }
    }
}
