#include "TestObjects.h"
#include "objects/Hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

namespace {

// Initialization before main() uses the constant.
constinit const CFStringRef kNamedAtCompileTime = CFSTR("Changer GUID");
const CFIndex g_lengthBeforeMain = CFStringGetLength(kNamedAtCompileTime);

TEST(Object, LastReleaseDestroys) {
    int destroyed = 0;
    struct Counted : cf::Object {
        int* count;
        Counted(const cf::Class* countedClass, int* destroyedCount)
            : Object(countedClass), count(destroyedCount) {}
    };
    const cf::Class countedClass = {
        [](cf::Object* object) noexcept { ++*static_cast<Counted*>(object)->count; }, nullptr,
        nullptr};
    Counted object(&countedClass, &destroyed);
    EXPECT_EQ(CFRetain(&object), &object);
    EXPECT_EQ(ReferencesTo(&object), 2);
    CFRelease(&object);
    EXPECT_EQ(destroyed, 0);
    CFRelease(&object);
    EXPECT_EQ(destroyed, 1);
}

TEST(Object, WithoutClassFunctionsEqualsOnlyItself) {
    const cf::Class plainClass = {cf::DestroyPlain, nullptr, nullptr};
    const cf::Object one(&plainClass);
    const cf::Object other(&plainClass);
    EXPECT_TRUE(CFEqual(&one, &one));
    EXPECT_FALSE(CFEqual(&one, &other));
    EXPECT_EQ(cf::Hash(&one), cf::Hash(&one));
}

TEST(Object, NullIsAcceptedByRetainReleaseAndEqual) {
    EXPECT_EQ(CFRetain(nullptr), nullptr);
    CFRelease(nullptr);
    EXPECT_FALSE(CFEqual(CFSTR("x"), nullptr));
    EXPECT_FALSE(CFEqual(nullptr, CFSTR("x")));
    EXPECT_TRUE(CFEqual(nullptr, nullptr));
}

TEST(Object, StaticObjectIsNotCounted) {
    const CFTypeRef statics[] = {CFSTR("static"), kCFBooleanTrue, kCFBooleanFalse, kCFNull};
    for (const CFTypeRef object : statics) {
        CFRetain(object);
        CFRelease(object);
        CFRelease(object);
        EXPECT_EQ(ReferencesTo(object), cf::kStaticReferences);
    }
}

TEST(Object, IntegerInReferenceIsUsedLikeAnObject) {
    const auto seven = Integer(7);
    EXPECT_EQ(CFRetain(seven), static_cast<CFTypeRef>(seven));
    CFRelease(seven);
    CFRelease(seven);
    EXPECT_EQ(CFGetTypeID(seven), CFGetTypeID(Integer(kLarge)));
    EXPECT_TRUE(CFEqual(seven, Real(7.0)));
    EXPECT_TRUE(CFEqual(Real(7.0), seven));
    EXPECT_FALSE(CFEqual(seven, CFSTR("7")));
    EXPECT_FALSE(CFEqual(CFSTR("7"), seven));
    EXPECT_FALSE(CFEqual(seven, kCFBooleanTrue));
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(CFTypeRef{seven})), 0);
    EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(CFTypeRef{seven})), 0);
}

TEST(Object, BooleansAndNullDiffer) {
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_FALSE(CFEqual(kCFBooleanFalse, kCFNull));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, Integer(1)));
}

TEST(Object, OwnedReleasesAtEndOfScope) {
    const auto number = Integer(kLarge);
    const auto* object = cf::AsObject(number);
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

TEST(ConstantString, IsUsableBeforeMain) {
    EXPECT_EQ(g_lengthBeforeMain, 12);
}

TEST(ConstantString, OfEqualTextIsOneObject) {
    EXPECT_EQ(CFSTR("Changer GUID"), kNamedAtCompileTime);
    EXPECT_NE(CFSTR("Changer guid"), kNamedAtCompileTime);
}

TEST(ConstantString, EqualsAndHashesLikeAnyOther) {
    const auto text = Text("Changer GUID");
    EXPECT_TRUE(CFEqual(text, CFSTR("Changer GUID")));
    EXPECT_EQ(cf::Hash(cf::AsObject(text)), cf::Hash(cf::AsObject(CFSTR("Changer GUID"))));
}

TEST(ConstantString, CountsUtf16Units) {
    EXPECT_EQ(CFStringGetLength(CFSTR("")), 0);
    EXPECT_EQ(CFStringGetLength(CFSTR("caf\u00E9")), 4);
    EXPECT_EQ(CFStringGetLength(CFSTR("\U0001F600")), 2);
    EXPECT_EQ(CFStringGetLength(CFSTR("a\0b")), 3);
}

TEST(Hash, NeighbouringInputsHashDifferently) {
    EXPECT_NE(cf::HashWord(1), cf::HashWord(2));
    EXPECT_NE(cf::HashBytes("a\0", 2), cf::HashBytes("a", 1));
    EXPECT_NE(cf::HashBytes("12345678a", 9), cf::HashBytes("12345678b", 9));
    EXPECT_LT(cf::HashWord(UINT64_MAX), 1U << cf::kHashBits);
}

} // namespace
