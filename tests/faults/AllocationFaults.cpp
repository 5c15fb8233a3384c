#include "AllocationFaults.h"

#include "NumberReferences.h"

#include <CoreFoundation/CFNumber.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// All zero while no fault is set.
struct Countdown {
    std::size_t untilFault;
    std::size_t faultsLeft;
    bool happened;
};
constinit thread_local Countdown t_countdown = {};
constinit thread_local bool t_isExempt = false;

// A limit, as tests of large blocks would take long.
constexpr std::size_t kFilledBytes = 64 * 1024;

bool IsRefused() noexcept {
    if (t_isExempt || (t_countdown.untilFault > 0 && --t_countdown.untilFault > 0))
        return false;
    if (t_countdown.faultsLeft == 0)
        return false;
    --t_countdown.faultsLeft;
    t_countdown.happened = true;
    return true;
}

} // namespace

AllocationFault::AllocationFault(std::size_t nth, std::size_t count) noexcept {
    t_countdown = {nth, count, false};
}

AllocationFault::~AllocationFault() {
    t_countdown = {};
}

bool AllocationFault::Happened() noexcept {
    return t_countdown.happened;
}

bool AllocationFault::WillHappenAgain() noexcept {
    return t_countdown.happened && t_countdown.faultsLeft > 0;
}

NoAllocationFaultsHere::NoAllocationFaultsHere() noexcept {
    t_isExempt = true;
}

NoAllocationFaultsHere::~NoAllocationFaultsHere() {
    t_isExempt = false;
}

// What --wrap makes of the calls, and of the functions themselves.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
char* __real_strdup(const char* text);
CFNumberRef __real_CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);

void* __wrap_malloc(std::size_t size) {
    void* memory = IsRefused() || size == 0 ? nullptr : __real_malloc(size);
    if (memory != nullptr)
        std::memset(memory, 0xA5, std::min(size, kFilledBytes));
    return memory;
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return IsRefused() || count == 0 || size == 0 ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, std::size_t size) {
    return IsRefused() ? nullptr : __real_realloc(memory, size);
}

char* __wrap_strdup(const char* text) {
    return IsRefused() ? nullptr : __real_strdup(text);
}

// Weak, because some tests have a seam of their own there.
__attribute__((weak)) CFNumberRef __wrap_CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                                        const void* value) {
    CFNumberRef number = IsRefused() ? nullptr : __real_CFNumberCreate(allocator, type, value);
    if (NumberReferences::MakesObjectOf(number)) {
        double real = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &real);
        number = __real_CFNumberCreate(allocator, kCFNumberFloat64Type, &real);
    }
    NumberReferences::NoteMade(number);
    return number;
}
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return IsRefused() ? nullptr : __real_malloc(size > 0 ? size : 1);
}

void* operator new(std::size_t size) {
    void* memory = operator new(size, std::nothrow);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

// Called by the library when a constructor throws.
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
