#include "TestObjects.h"
#include "objects/Hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

namespace {

// Used before any constructor of this file runs, which a static object must survive.
constinit const CFStringRef kNamedAtCompileTime = CFSTR("Changer GUID");
const CFIndex g_lengthFoundWhileStarting = CFStringGetLength(kNamedAtCompileTime);

TEST(Object, IsCountedAndGoesWithItsLastReference) {
    int destroyed = 0;
    struct Witness : cf::Object {
        int* count;
        Witness(const cf::Class* witnessClass, int* destroyedCount)
            : Object(witnessClass), count(destroyedCount) {}
    };
    const cf::Class counted = {
        [](cf::Object* object) noexcept { ++*static_cast<Witness*>(object)->count; }, nullptr,
        nullptr};
    Witness witness(&counted, &destroyed);
    EXPECT_EQ(CFRetain(&witness), &witness);
    EXPECT_EQ(ReferencesTo(&witness), 2);
    CFRelease(&witness);
    EXPECT_EQ(destroyed, 0);
    CFRelease(&witness);
    EXPECT_EQ(destroyed, 1);
}

TEST(Object, WithoutClassFunctionsIsItsOwnEqualOnly) {
    const cf::Class plainClass = {cf::DestroyPlain, nullptr, nullptr};
    const cf::Object one(&plainClass);
    const cf::Object other(&plainClass);
    EXPECT_TRUE(CFEqual(&one, &one));
    EXPECT_FALSE(CFEqual(&one, &other));
    EXPECT_EQ(cf::Hash(&one), cf::Hash(&one));
}

TEST(Object, NullIsHarmless) {
    EXPECT_EQ(CFRetain(nullptr), nullptr);
    CFRelease(nullptr);
    EXPECT_FALSE(CFEqual(CFSTR("x"), nullptr));
    EXPECT_FALSE(CFEqual(nullptr, CFSTR("x")));
    EXPECT_TRUE(CFEqual(nullptr, nullptr));
}

TEST(Object, StaticOnesAreNotCounted) {
    const CFTypeRef statics[] = {
        CFSTR("static"),
        kCFBooleanTrue,
        kCFBooleanFalse,
        kCFNull,
    };
    for (const CFTypeRef object : statics) {
        CFRetain(object);
        CFRelease(object);
        CFRelease(object);
        EXPECT_EQ(ReferencesTo(object), cf::kStaticReferences);
    }
}

TEST(Object, AReferenceThatHoldsAnIntegerIsUsedLikeAnyOther) {
    const auto held = Integer(7);
    EXPECT_EQ(CFRetain(held), static_cast<CFTypeRef>(held));
    CFRelease(held);
    CFRelease(held);
    EXPECT_EQ(CFGetTypeID(held), CFGetTypeID(Integer(kLarge)));
    EXPECT_TRUE(CFEqual(held, Real(7.0)));
    EXPECT_TRUE(CFEqual(Real(7.0), held));
    EXPECT_FALSE(CFEqual(held, CFSTR("7")));
    EXPECT_FALSE(CFEqual(CFSTR("7"), held));
    EXPECT_FALSE(CFEqual(held, kCFBooleanTrue));
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(CFTypeRef{held})), 0);
    EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(CFTypeRef{held})), 0);
}

TEST(Object, BooleansAndNullDiffer) {
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_FALSE(CFEqual(kCFBooleanFalse, kCFNull));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, Integer(1)));
}

TEST(Object, OwnedReferencesFollowTheirScope) {
    const auto number = Integer(kLarge);
    const auto* object = cf::AsObject(static_cast<CFNumberRef>(number));
    {
        auto shared = cf::Owned<const cf::Object>::Share(object);
        EXPECT_EQ(ReferencesTo(number), 2);
        auto moved = std::move(shared);
        EXPECT_EQ(ReferencesTo(number), 2);
        moved = cf::Owned<const cf::Object>();
        EXPECT_EQ(ReferencesTo(number), 1);
        CFRetain(number);
        const auto adopted = cf::Owned<const cf::Object>::Adopt(object);
        EXPECT_EQ(ReferencesTo(number), 2);
    }
    EXPECT_EQ(ReferencesTo(number), 1);
}

TEST(ConstantString, IsThereBeforeAnythingRuns) {
    EXPECT_EQ(g_lengthFoundWhileStarting, 12);
}

TEST(ConstantString, OfEqualTextIsOneObject) {
    EXPECT_EQ(CFSTR("Changer GUID"), kNamedAtCompileTime);
    EXPECT_NE(CFSTR("Changer guid"), kNamedAtCompileTime);
}

TEST(ConstantString, EqualsAndHashesLikeAnyOther) {
    const auto text = Text("Changer GUID");
    EXPECT_TRUE(CFEqual(text, CFSTR("Changer GUID")));
    EXPECT_EQ(cf::Hash(cf::AsObject(static_cast<CFStringRef>(text))),
              cf::Hash(cf::AsObject(CFSTR("Changer GUID"))));
}

TEST(ConstantString, CountsUtf16Units) {
    EXPECT_EQ(CFStringGetLength(CFSTR("")), 0);
    EXPECT_EQ(CFStringGetLength(CFSTR("caf\u00E9")), 4);
    EXPECT_EQ(CFStringGetLength(CFSTR("\U0001F600")), 2);
    EXPECT_EQ(CFStringGetLength(CFSTR("a\0b")), 3);
}

TEST(Hash, TellsNeighboursApart) {
    EXPECT_NE(cf::HashWord(1), cf::HashWord(2));
    EXPECT_NE(cf::HashBytes("a\0", 2), cf::HashBytes("a", 1));
    EXPECT_NE(cf::HashBytes("12345678a", 9), cf::HashBytes("12345678b", 9));
    EXPECT_LT(cf::HashWord(UINT64_MAX), 1U << cf::kHashBits);
}

} // namespace
