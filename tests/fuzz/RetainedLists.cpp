#include "RetainedLists.h"

#include "common/VErr.h"
#include "support/CFOwned.h"

#include <CoreFoundation/CoreFoundation.h>

#include <utility>
#include <vector>

namespace {

std::vector<CFOwned<CFArrayRef>> g_retained;
CFOwned<CFArrayRef> g_lastSaved; // the store releases it

} // namespace

// The mangled names of SaveChangerInfoList and GetChangerList.
extern "C" {
VErrLink* __real__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list);
VErrLink* __real__Z14GetChangerListPPK9__CFArray(CFArrayRef* list);

VErrLink* __wrap__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list) {
    g_retained.push_back(std::move(g_lastSaved));
    g_lastSaved = CFOwned<CFArrayRef>(list);
    return __real__Z19SaveChangerInfoListPK9__CFArray(list);
}

VErrLink* __wrap__Z14GetChangerListPPK9__CFArray(CFArrayRef* list) {
    VErrLink* err = __real__Z14GetChangerListPPK9__CFArray(list);
    g_retained.emplace_back(*list);
    return err;
}
}

RetainedLists::~RetainedLists() {
    g_lastSaved.Detach();
    g_retained.clear();
}
