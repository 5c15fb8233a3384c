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

#define FAILING_CALL(name, Result, parameters, arguments)                                          \
    extern "C" Result __real_##name parameters;                                                    \
    extern "C" Result __wrap_##name parameters;                                                    \
    extern "C" Result __wrap_##name parameters {                                                   \
        return Failing::Is(#name) ? nullptr : __real_##name arguments;                             \
    }

FAILING_CALL(CFDataCreate, CFDataRef,
             (CFAllocatorRef allocator, const UInt8* bytes, CFIndex length),
             (allocator, bytes, length))
FAILING_CALL(CFDataCreateMutable, CFMutableDataRef, (CFAllocatorRef allocator, CFIndex capacity),
             (allocator, capacity))
FAILING_CALL(CFDictionaryCreateMutable, CFMutableDictionaryRef,
             (CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keys,
              const CFDictionaryValueCallBacks* values),
             (allocator, capacity, keys, values))
FAILING_CALL(CFDictionaryCreateMutableCopy, CFMutableDictionaryRef,
             (CFAllocatorRef allocator, CFIndex capacity, CFDictionaryRef dictionary),
             (allocator, capacity, dictionary))
FAILING_CALL(CFNumberCreate, CFNumberRef,
             (CFAllocatorRef allocator, CFNumberType type, const void* value),
             (allocator, type, value))
FAILING_CALL(CFStringCreateWithCString, CFStringRef,
             (CFAllocatorRef allocator, const char* text, CFStringEncoding encoding),
             (allocator, text, encoding))
FAILING_CALL(CFPropertyListCreateXMLData, CFDataRef,
             (CFAllocatorRef allocator, CFPropertyListRef list), (allocator, list))
FAILING_CALL(CFRunLoopGetCurrent, CFRunLoopRef, (), ())
FAILING_CALL(CFSocketCreateRunLoopSource, CFRunLoopSourceRef,
             (CFAllocatorRef allocator, CFSocketRef socket, CFIndex order),
             (allocator, socket, order))
FAILING_CALL(CFPropertyListCreateFromXMLData, CFPropertyListRef,
             (CFAllocatorRef allocator, CFDataRef data, CFOptionFlags mutability,
              CFStringRef* errorText),
             (allocator, data, mutability, errorText))

extern "C" {
CFSocketError __real_CFSocketSendData(CFSocketRef socket, CFDataRef address, CFDataRef data,
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
