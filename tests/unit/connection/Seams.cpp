#include "Seams.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string_view>
#include <utility>

static thread_local const char* t_failing = "";
static thread_local std::function<void(CFTimeInterval)> t_onSending;

Failing::Failing(const char* function) {
    t_failing = function;
}

Failing::~Failing() {
    t_failing = "";
}

bool Failing::Is(const char* function) {
    return std::string_view(t_failing) == function;
}

OnSending::OnSending(std::function<void(CFTimeInterval timeout)> function) {
    t_onSending = std::move(function);
}

OnSending::~OnSending() {
    t_onSending = nullptr;
}

#define FAILING_SEAM(Result, failure, name, parameters, arguments)                                 \
    extern "C" Result __real_##name parameters;                                                    \
    extern "C" Result __wrap_##name parameters;                                                    \
    extern "C" Result __wrap_##name parameters {                                                   \
        return Failing::Is(#name) ? failure : __real_##name arguments;                             \
    }

FAILING_SEAM(CFDataRef, nullptr, CFDataCreate,
             (CFAllocatorRef allocator, const UInt8* bytes, CFIndex length),
             (allocator, bytes, length))
FAILING_SEAM(CFMutableDataRef, nullptr, CFDataCreateMutable,
             (CFAllocatorRef allocator, CFIndex capacity), (allocator, capacity))
FAILING_SEAM(CFMutableDictionaryRef, nullptr, CFDictionaryCreateMutable,
             (CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keys,
              const CFDictionaryValueCallBacks* values),
             (allocator, capacity, keys, values))
FAILING_SEAM(CFMutableDictionaryRef, nullptr, CFDictionaryCreateMutableCopy,
             (CFAllocatorRef allocator, CFIndex capacity, CFDictionaryRef dictionary),
             (allocator, capacity, dictionary))
FAILING_SEAM(CFNumberRef, nullptr, CFNumberCreate,
             (CFAllocatorRef allocator, CFNumberType type, const void* value),
             (allocator, type, value))
FAILING_SEAM(CFStringRef, nullptr, CFStringCreateWithCString,
             (CFAllocatorRef allocator, const char* text, CFStringEncoding encoding),
             (allocator, text, encoding))
FAILING_SEAM(CFDataRef, nullptr, CFPropertyListCreateXMLData,
             (CFAllocatorRef allocator, CFPropertyListRef list), (allocator, list))
FAILING_SEAM(CFRunLoopRef, nullptr, CFRunLoopGetCurrent, (), ())
FAILING_SEAM(CFRunLoopSourceRef, nullptr, CFSocketCreateRunLoopSource,
             (CFAllocatorRef allocator, CFSocketRef socket, CFIndex order),
             (allocator, socket, order))
FAILING_SEAM(CFPropertyListRef, nullptr, CFPropertyListCreateFromXMLData,
             (CFAllocatorRef allocator, CFDataRef data, CFOptionFlags mutability,
              CFStringRef* errorText),
             (allocator, data, mutability, errorText))

extern "C" {
CFSocketError __real_CFSocketSendData(CFSocketRef socket, CFDataRef address, CFDataRef data,
                                      CFTimeInterval timeout);
CFSocketError __wrap_CFSocketSendData(CFSocketRef socket, CFDataRef address, CFDataRef data,
                                      CFTimeInterval timeout);

CFSocketError __wrap_CFSocketSendData(CFSocketRef socket, CFDataRef address, CFDataRef data,
                                      CFTimeInterval timeout) {
    if (t_onSending)
        t_onSending(timeout);
    return Failing::Is("CFSocketSendData")
               ? kCFSocketTimeout
               : __real_CFSocketSendData(socket, address, data, timeout);
}
}
