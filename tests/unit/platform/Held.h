#ifndef TESTS_UNIT_PLATFORM_HELD_H
#define TESTS_UNIT_PLATFORM_HELD_H

/* Objects that a test holds, and short ways to make them. */

#include "objects/Object.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <utility>

/* A reference of the test's own; converts to what the calls take. */
template<typename Reference>
class Held {
public:
    explicit Held(Reference owned) noexcept : reference_(owned) {}
    Held(Held&& other) noexcept : reference_(other.Detach()) {}
    Held(const Held&) = delete;
    Held& operator=(Held&& other) noexcept {
        std::swap(reference_, other.reference_);
        return *this;
    }
    ~Held() {
        CFRelease(reference_);
    }

    operator Reference() const noexcept {
        return reference_;
    }
    Reference Detach() noexcept {
        return std::exchange(reference_, nullptr);
    }

private:
    Reference reference_;
};

/* Too large for a reference to hold it, so that it is an object. It is a real, too; the next one is
   1024 away. */
constexpr std::int64_t kLarge = std::int64_t{1} << 62;

inline Held<CFNumberRef> Integer(std::int64_t value) {
    return Held(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

inline Held<CFNumberRef> Real(double value) {
    return Held(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

inline Held<CFStringRef> Text(const char* utf8) {
    return Held(CFStringCreateWithCString(nullptr, utf8, kCFStringEncodingUTF8));
}

inline Held<CFMutableArrayRef> NewArray() {
    return Held(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

inline Held<CFMutableDictionaryRef> NewDictionary() {
    return Held(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                          &kCFTypeDictionaryValueCallBacks));
}

inline std::int32_t ReferencesTo(CFTypeRef object) {
    return cf::AsObject(object)->references;
}

#endif
