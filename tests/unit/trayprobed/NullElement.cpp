#include "NullElement.h"

static CFIndex g_index = kCFNotFound;
static int g_goodReads = 0;

extern "C" {
const void* __real_CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

const void* __wrap_CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
    const bool isNull = index == g_index && g_goodReads-- <= 0;
    return isNull ? nullptr : __real_CFArrayGetValueAtIndex(array, index);
}
}

NullElement::NullElement(CFIndex index, int goodReads) {
    g_index = index;
    g_goodReads = goodReads;
}

NullElement::~NullElement() {
    g_index = kCFNotFound;
}
