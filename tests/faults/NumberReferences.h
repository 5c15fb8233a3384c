#ifndef TESTS_FAULTS_NUMBERREFERENCES_H
#define TESTS_FAULTS_NUMBERREFERENCES_H

/*
 * Counts the references to number objects, in release builds too. Only reals, and integers that do
 * not fit into 63 bits, are objects; the GUIDs of tests are such integers. The seam
 * AllocationFaults reports each number that it makes, and the seams of the daily timer each number
 * that a timer carries.
 */

#include "support/NotCopyable.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

/* While it lives, each number object that is made, up to a million of them, gets two additional
   references, so that a release too many cannot free it. The destructor fails the test for a number
   with any other reference. One at a time. */
class NumberReferences : NotCopyable {
public:
    NumberReferences() {
        EXPECT_FALSE(s_isWatching.exchange(true)) << "one at a time";
    }
    ~NumberReferences() {
        s_isWatching = false;
        const std::size_t made = std::min(s_made.exchange(0), kCapacity);
        for (std::size_t i = 0; i < made; ++i) {
            EXPECT_EQ(CountReferences(s_numbers[i]), kOwn + (IsKept(s_numbers[i]) ? kOfTimers : 0))
                << "number object " << i;
            CFRelease(s_numbers[i]);
            CFRelease(s_numbers[i]);
        }
        s_kept.fill(nullptr);
        s_makesObjectsOfAll = false;
    }

    // Reports a number; null is ignored. Any thread. Neither locks nor allocates, as tests may
    // watch both.
    static void NoteMade(CFNumberRef number) {
        if (number == nullptr || !IsObject(number) || !s_isWatching)
            return;
        const std::size_t index = s_made++;
        if (index >= kCapacity)
            return;
        CFRetain(number);
        CFRetain(number);
        s_numbers[index] = number;
    }
    // Reports a number that a changer's timers carry: the table of timers keeps two references to
    // it. The timers' thread only.
    static void NoteKept(const void* number) {
        if (s_isWatching && !IsKept(number))
            *std::find(s_kept.begin(), s_kept.end(), nullptr) = number;
    }

    // From now on integers that would be no objects are made as reals of the same value, which are.
    static void MakeObjectsOfAll() {
        s_makesObjectsOfAll = true;
    }
    // True if the number has to be replaced by such a real.
    static bool MakesObjectOf(CFNumberRef number) {
        return s_makesObjectsOfAll && number != nullptr && !IsObject(number);
    }

    // The object's references. `object` must not be a number without one.
    static std::int32_t CountReferences(CFTypeRef object) {
        return static_cast<const cf::Object*>(object)->references;
    }

private:
    static bool IsObject(CFNumberRef number) {
        return (reinterpret_cast<std::uintptr_t>(number) & 1U) == 0;
    }
    static bool IsKept(const void* number) {
        return std::find(s_kept.begin(), s_kept.end(), number) != s_kept.end();
    }

    static constexpr std::int32_t kOwn = 2;
    static constexpr std::int32_t kOfTimers = 2; // as key and as value of the table of them
    static constexpr std::size_t kCapacity = 1'000'000;

    inline static std::atomic<bool> s_isWatching = false;
    inline static std::atomic<bool> s_makesObjectsOfAll = false;
    inline static std::atomic<std::size_t> s_made = 0;
    inline static std::array<CFNumberRef, kCapacity> s_numbers = {};
    inline static std::array<const void*, 64> s_kept = {}; // of the timers' one thread
};

#endif
