#include "ListChecks.h"

#include "objects/Array.h"
#include "objects/Date.h"
#include "objects/Dictionary.h"
#include "objects/Number.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <string>

namespace {

constexpr int kFewValues = 1000;

// Less than nothing is left when there are more values than were left before.
int LeftAfter(const cf::Object* list, int left) {
    --left;
    if (const auto* array = cf::As<cf::Array>(list)) {
        for (std::size_t i = 0; i < array->count; ++i)
            left = left < 0 ? left : LeftAfter(cf::MemberAt(array, i), left);
    } else if (const auto* dictionary = cf::As<cf::Dictionary>(list)) {
        cf::VisitPairs(dictionary, [&](const cf::Object*, const cf::Object* value) {
            left = left < 0 ? left : LeftAfter(value, left);
        });
    }
    return left;
}

// In the place of what only the binary format has.
bool HasNull(const cf::Object* value) {
    bool hasNull = value == cf::AsObject(kCFNull);
    if (const auto* array = cf::As<cf::Array>(value)) {
        for (std::size_t i = 0; i < array->count; ++i)
            hasNull = hasNull || HasNull(cf::MemberAt(array, i));
    } else if (const auto* dictionary = cf::As<cf::Dictionary>(value)) {
        cf::VisitPairs(dictionary, [&](const cf::Object*, const cf::Object* each) {
            hasNull = hasNull || HasNull(each);
        });
    }
    return hasNull;
}

// XML has whole seconds, and one NaN of the many.
bool HasAllInXml(const cf::Object* value) {
    if (const auto* date = cf::As<cf::Date>(value))
        return std::trunc(date->absoluteTime) == date->absoluteTime;
    if (const auto number = cf::NumberIn(value))
        return number->kind != cf::kRealNumber || !std::isnan(number->Real());
    bool hasAll = true;
    if (const auto* array = cf::As<cf::Array>(value)) {
        for (std::size_t i = 0; i < array->count; ++i)
            hasAll = hasAll && HasAllInXml(cf::MemberAt(array, i));
    } else if (const auto* dictionary = cf::As<cf::Dictionary>(value)) {
        cf::VisitPairs(dictionary, [&](const cf::Object*, const cf::Object* each) {
            hasAll = hasAll && HasAllInXml(each);
        });
    }
    return hasAll;
}

} // namespace

bool HasXml(CFPropertyListRef list) {
    return LeftAfter(cf::AsObject(list), kFewValues) >= 0 && !HasNull(cf::AsObject(list)) &&
           WriteList(list).find('\0') == std::string::npos;
}

void ExpectSameWithMutableContainers(std::string_view bytes, const ReadResult& immutable) {
    const ReadResult list = ReadList(bytes, kCFPropertyListMutableContainersAndLeaves);
    EXPECT_EQ(static_cast<bool>(list.list), static_cast<bool>(immutable.list));
    EXPECT_EQ(list.error, immutable.error);
    if (list.list && HasXml(list.list.Get()))
        EXPECT_EQ(WriteList(list.list.Get()), WriteList(immutable.list.Get()));
}

void ExpectSameWhenReadAgain(CFPropertyListRef list) {
    const std::string written = WriteList(list);
    EXPECT_NE(written, "");
    const ReadResult again = ReadList(written);
    EXPECT_TRUE(again.list) << again.error << "\n" << written;
    if (written.find(">\uFEFF") != std::string::npos)
        return; // reading drops a mark at the beginning of a text
    EXPECT_EQ(WriteList(again.list.Get()), written);
    if (HasAllInXml(cf::AsObject(list)))
        EXPECT_TRUE(CFEqual(again.list.Get(), list)) << written;
}

void ExpectWitnessAgrees(CFPropertyListRef ours, const Node& theirs, EqualKeys equalKeys) {
    if (theirs)
        EXPECT_EQ(DifferenceOf(cf::AsObject(ours), theirs.get(), equalKeys), "") << WriteList(ours);
}
