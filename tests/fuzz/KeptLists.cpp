#include "KeptLists.h"

#include "common/VErr.h"
#include "support/Held.h"

#include <CoreFoundation/CoreFoundation.h>

#include <utility>
#include <vector>

namespace {

std::vector<Held<CFArrayRef>> g_kept;
Held<CFArrayRef> g_lastSaved; // released by the store itself

} // namespace

// SaveChangerInfoList and GetChangerList by their names for the linker.
extern "C" {
VErrLink* __real__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list);
VErrLink* __wrap__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list);
VErrLink* __real__Z14GetChangerListPPK9__CFArray(CFArrayRef* list);
VErrLink* __wrap__Z14GetChangerListPPK9__CFArray(CFArrayRef* list);

VErrLink* __wrap__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list) {
    g_kept.push_back(std::move(g_lastSaved));
    g_lastSaved = Held<CFArrayRef>(list);
    return __real__Z19SaveChangerInfoListPK9__CFArray(list);
}

VErrLink* __wrap__Z14GetChangerListPPK9__CFArray(CFArrayRef* list) {
    VErrLink* err = __real__Z14GetChangerListPPK9__CFArray(list);
    g_kept.emplace_back(*list);
    return err;
}
}

KeptLists::~KeptLists() {
    g_lastSaved.Detach();
    g_kept.clear();
}
