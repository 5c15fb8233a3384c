#include "TestObjects.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using Date = CFOwned<CFTypeRef>;

std::uint32_t HashOf(CFTypeRef object) {
    return cf::Hash(cf::AsObject(object));
}

TEST(Date, EqualsADateOfTheSameTime) {
    const Date date(cf::SharedDate(1.5));
    EXPECT_TRUE(CFEqual(date, Date(cf::SharedDate(1.5))));
    EXPECT_FALSE(CFEqual(date, Date(cf::SharedDate(1.25))));
    EXPECT_FALSE(CFEqual(date, Date(cf::SharedDate(-1.5))));
    EXPECT_FALSE(CFEqual(date, Real(1.5)));
}

// The bits of the two zeros differ: they are two objects.
TEST(Date, EqualsTheOtherZeroWithTheSameHash) {
    const Date zero(cf::SharedDate(0.0));
    const Date negativeZero(cf::SharedDate(-0.0));
    ASSERT_NE(CFTypeRef{zero}, CFTypeRef{negativeZero});
    EXPECT_TRUE(CFEqual(zero, negativeZero));
    EXPECT_EQ(HashOf(zero), HashOf(negativeZero));
}

TEST(Date, DifferentTimesHaveDifferentHashes) {
    EXPECT_NE(HashOf(Date(cf::SharedDate(1.0))), HashOf(Date(cf::SharedDate(2.0))));
    EXPECT_NE(HashOf(Date(cf::SharedDate(1.0))), HashOf(Date(cf::SharedDate(-1.0))));
    EXPECT_NE(HashOf(Date(cf::SharedDate(1.0))), HashOf(Date(cf::SharedDate(1.0 + 1e-9))));
}

// A dictionary finds a key by hash and equality.
TEST(Date, IsFoundAsAKey) {
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, Date(cf::SharedDate(0.0)), CFSTR("the reference date"));
    CFDictionarySetValue(dictionary, Date(cf::SharedDate(1.0)), CFSTR("a second later"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, Date(cf::SharedDate(-0.0))),
              CFSTR("the reference date"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, Date(cf::SharedDate(1.0))), CFSTR("a second later"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, Date(cf::SharedDate(2.0))), nullptr);
}

} // namespace
