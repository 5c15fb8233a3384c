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

constexpr int kMaxValues = 1000;

// True if the condition holds for the value or for one inside it. Ends at the first such value.
template<typename Condition>
bool Contains(const cf::Object* value, Condition& condition) {
    bool isFound = condition(value);
    if (const auto* array = cf::As<cf::Array>(value)) {
        for (std::size_t i = 0; i < array->count; ++i)
            isFound = isFound || Contains(cf::MemberAt(array, i), condition);
    } else if (const auto* dictionary = cf::As<cf::Dictionary>(value)) {
        cf::VisitPairs(dictionary, [&](const cf::Object*, const cf::Object* each) {
            isFound = isFound || Contains(each, condition);
        });
    }
    return isFound;
}

// The readers replace values that only the binary format has by null.
bool IsNull(const cf::Object* value) {
    return value == cf::AsObject(kCFNull);
}

// XML has no fractions of seconds and only one NaN.
bool IsInexactInXml(const cf::Object* value) {
    if (const auto* date = cf::As<cf::Date>(value))
        return std::trunc(date->absoluteTime) != date->absoluteTime;
    const auto number = cf::NumberIn(value);
    return number && number->kind == cf::kRealNumber && std::isnan(number->Real());
}

} // namespace

bool IsXmlCompatible(CFPropertyListRef list) {
    int left = kMaxValues;
    const auto isOneTooMany = [&left](const cf::Object*) { return --left < 0; };
    return !Contains(cf::AsObject(list), isOneTooMany) && !Contains(cf::AsObject(list), IsNull) &&
           XmlOf(list).find('\0') == std::string::npos;
}

void ExpectSameWithMutableContainers(std::string_view bytes, const ReadResult& immutable) {
    const ReadResult list = ReadList(bytes, kCFPropertyListMutableContainersAndLeaves);
    EXPECT_EQ(static_cast<bool>(list.list), static_cast<bool>(immutable.list));
    EXPECT_EQ(list.error, immutable.error);
    if (list.list && IsXmlCompatible(list.list.Get()))
        EXPECT_EQ(XmlOf(list.list.Get()), XmlOf(immutable.list.Get()));
}

void ExpectSameWhenReadAgain(CFPropertyListRef list) {
    const std::string written = XmlOf(list);
    EXPECT_NE(written, "");
    const ReadResult again = ReadList(written);
    EXPECT_TRUE(again.list) << again.error << "\n" << written;
    if (written.find(">\uFEFF") != std::string::npos)
        return; // the reader removes a byte order mark at the start of a text
    EXPECT_EQ(XmlOf(again.list.Get()), written);
    if (!Contains(cf::AsObject(list), IsInexactInXml))
        EXPECT_TRUE(CFEqual(again.list.Get(), list)) << written;
}

void ExpectReferenceAgrees(CFPropertyListRef ours, const Node& theirs, EqualKeys equalKeys) {
    if (theirs)
        EXPECT_EQ(DifferenceOf(cf::AsObject(ours), theirs.get(), equalKeys), "") << XmlOf(ours);
}
