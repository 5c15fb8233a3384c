#ifndef TESTS_FAULTS_NUMBERREFERENCES_H
#define TESTS_FAULTS_NUMBERREFERENCES_H

/*
 * References to number objects, counted in release builds, too. Only integers that do not fit in 63
 * bits, and reals, are objects: GUIDs of tests are such integers. A program with ALLOCATION_FAULTS
 * tells of each number that it makes, and the seams of the daily timer of each that a timer
 * carries.
 */

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

/* While one of these lives, each number object that is made, up to a million of them, gets two
   references more, so that a release too many cannot free it. At the end each must have these two
   alone. */
class NumberReferences {
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
    NumberReferences(const NumberReferences&) = delete;
    NumberReferences& operator=(const NumberReferences&) = delete;

    // Any thread. Takes no lock and no memory, both of which tests may watch.
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
    // A changer's timers carry this number: two references to it are kept for good.
    static void NoteKept(const void* number) {
        if (s_isWatching && !IsKept(number))
            *std::find(s_kept.begin(), s_kept.end(), nullptr) = number;
    }

    // From here on an integer that is no object is made as the real of the same value, which is:
    // for numbers of 16 bits.
    static void MakeObjectsOfAll() {
        s_makesObjectsOfAll = true;
    }
    static bool MakesObjectOf(CFNumberRef number) {
        return s_makesObjectsOfAll && number != nullptr && !IsObject(number);
    }

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
