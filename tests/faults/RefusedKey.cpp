#include "RefusedKey.h"

#include "support/PropertyLists.h"

#include <utility>

static CFStringRef g_refusedKey = nullptr;

extern "C" {
void __real_CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                 const void* value);

void __wrap_CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                 const void* value) {
    if (g_refusedKey == nullptr || !CFEqual(key, g_refusedKey))
        __real_CFDictionarySetValue(dictionary, key, value);
}
}

RefusedKey::RefusedKey(const std::string& utf8) {
    g_refusedKey = Text(utf8).Detach();
}

RefusedKey::~RefusedKey() {
    CFRelease(std::exchange(g_refusedKey, nullptr));
}
