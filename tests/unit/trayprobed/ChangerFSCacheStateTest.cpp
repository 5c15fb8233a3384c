/* The registry of mounted changer file systems. */

#include "trayprobed/ChangerFSCacheState.h"

#include "NumberReferences.h"
#include "RefusedKey.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <atomic>
#include <set>
#include <string>
#include <thread>

namespace {

constexpr const char* kSource = "trayprobed/ChangerFSCacheState";
// Both are number objects, not tagged references.
constexpr UInt64 kChanger = 0x9EDCBA9876543210;
constexpr UInt64 kOtherChanger = 0x5000C500ABCD1234;

class Registry : public testing::Test {
protected:
    Registry() {
        EXPECT_EQ(InitChangerFSCacheState(), nullptr);
    }
    ~Registry() override {
        TermChangerFSCacheState();
    }

    static void Add(UInt64 changerGUID, const char* bsdName, const std::string& path) {
        EXPECT_EQ(TakeChain(AddChangerFSToList(changerGUID, bsdName, path.c_str())), Chain());
    }
    static bool IsMounted(UInt64 changerGUID) {
        bool isInList = false;
        EXPECT_EQ(TakeChain(IsChangerFSGUIDInList(changerGUID, &isInList)), Chain());
        return isInList;
    }
    static std::string PathOf(UInt64 changerGUID) {
        char path[1024] = "";
        EXPECT_EQ(TakeChain(GetChangerFSMountPath(changerGUID, path, sizeof path)), Chain());
        return path;
    }
    static void Remove(const char* bsdName) {
        EXPECT_EQ(TakeChain(RemoveChangerFSFromList(bsdName)), Chain());
    }

    LogCapture log_;

private:
    const NumberReferences numberReferences_; // counted after the registry's end
};

TEST_F(Registry, AddedChangerHasItsPath) {
    Add(kChanger, "sr0", "/Volumes/changer");
    EXPECT_TRUE(IsMounted(kChanger));
    EXPECT_FALSE(IsMounted(kOtherChanger));
    EXPECT_EQ(PathOf(kChanger), "/Volumes/changer");
}

TEST_F(Registry, AbsentChangerHasNoPath) {
    char path[16] = "before";
    EXPECT_EQ(TakeChain(GetChangerFSMountPath(0xAB, path, sizeof path)),
              (Chain{{"fail get changer dict for GUID 00000000000000AB", "GetChangerFSMountPath",
                      kSource}}));
}

TEST_F(Registry, SecondVolumeOfAChangerReplacesTheFirst) {
    Add(kChanger, "sr0", "/first");
    Add(kChanger, "sr1", "/second");
    EXPECT_EQ(PathOf(kChanger), "/second");
    Remove("sr0");
    EXPECT_TRUE(IsMounted(kChanger));
    Remove("sr1");
    EXPECT_FALSE(IsMounted(kChanger));
}

TEST_F(Registry, RemovalComparesNamesByteForByte) {
    Add(kChanger, "sr0", "/first");
    Add(kOtherChanger, "sr1", "/second");
    for (const char* name : {"SR0", "sr", "sr00", "", "sr2"})
        Remove(name);
    EXPECT_TRUE(IsMounted(kChanger));
    Remove("sr0");
    EXPECT_FALSE(IsMounted(kChanger));
    EXPECT_TRUE(IsMounted(kOtherChanger));
}

TEST_F(Registry, RemovalTakesOneOfSeveralEntriesWithTheSameName) {
    Add(kChanger, "sr0", "/first");
    Add(kOtherChanger, "sr0", "/second");
    Remove("sr0");
    EXPECT_NE(IsMounted(kChanger), IsMounted(kOtherChanger));
    Remove("sr0");
    EXPECT_FALSE(IsMounted(kChanger) || IsMounted(kOtherChanger));
}

TEST_F(Registry, RemovalFromAnEmptyRegistrySucceeds) {
    Remove("sr0");
}

// The scan copies each name into 128 bytes; a longer name ends the scan.
TEST_F(Registry, NameThatDoesNotFitEndsTheScan) {
    Add(kChanger, std::string(127, 'n').c_str(), "/first");
    Remove(std::string(127, 'n').c_str());
    EXPECT_FALSE(IsMounted(kChanger));

    Add(kChanger, std::string(128, 'n').c_str(), "/first");
    EXPECT_EQ(TakeChain(RemoveChangerFSFromList("sr0")),
              (Chain{{"fail get str as C str", "CFHDictionaryGetStringValue", "common/CFHelpers"},
                     {"fail CFHDictionaryGetStringValue", "RemoveChangerFSFromList", kSource}}));
    EXPECT_TRUE(IsMounted(kChanger));
}

TEST_F(Registry, PathLongerThanTheBufferFails) {
    Add(kChanger, "sr0", "/123456789");
    char path[10];
    EXPECT_EQ(TakeChain(GetChangerFSMountPath(kChanger, path, sizeof path)),
              (Chain{{"fail get str as C str", "CFHDictionaryGetStringValue", "common/CFHelpers"},
                     {"fail get changer mount path for GUID 9EDCBA9876543210",
                      "GetChangerFSMountPath", kSource}}));
    Add(0xAB, "sr1", "/123456789");
    EXPECT_EQ(TakeMessages(GetChangerFSMountPath(0xAB, path, sizeof path)).back(),
              "fail get changer mount path for GUID 00000000000000AB");

    char enough[11];
    EXPECT_EQ(GetChangerFSMountPath(kChanger, enough, sizeof enough), nullptr);
    EXPECT_STREQ(enough, "/123456789");
}

TEST_F(Registry, PathsAndNamesMustBeUtf8) {
    Add(kChanger, "sr0", "/Volumes/\xC3\xA4\n 100%n");
    EXPECT_EQ(PathOf(kChanger), "/Volumes/\xC3\xA4\n 100%n");
    EXPECT_EQ(TakeChain(AddChangerFSToList(kOtherChanger, "sr1", "/\xFF")),
              (Chain{{"fail alloc str", "CFHDictionarySetStringValue", "common/CFHelpers"},
                     {"fail set changer mount path value", "AddChangerFSToList", kSource}}));
    EXPECT_THAT(TakeMessages(AddChangerFSToList(kOtherChanger, "\xFF", "/x")),
                ElementsAre("fail alloc str", "fail set changer BSD name"));
    EXPECT_FALSE(IsMounted(kOtherChanger));
}

TEST(RegistryLifecycle, RegistryIsEmptyBeforeInitAndAfterTerm) {
    const LogCapture log;
    bool isInList = true;
    TermChangerFSCacheState();
    EXPECT_THAT(TakeMessages(AddChangerFSToList(kChanger, "sr0", "/x")),
                ElementsAre("fail create fs info dict"));
    EXPECT_EQ(RemoveChangerFSFromList("sr0"), nullptr);
    EXPECT_EQ(IsChangerFSGUIDInList(kChanger, &isInList), nullptr);
    EXPECT_FALSE(isInList);
    ASSERT_EQ(InitChangerFSCacheState(), nullptr);
    EXPECT_EQ(IsChangerFSGUIDInList(kChanger, &isInList), nullptr);
    EXPECT_FALSE(isInList);
    TermChangerFSCacheState();
}

TEST(RegistryLifecycle, WithoutMemoryInitFails) {
    const LogCapture log;
    EXPECT_EQ(
        ChainWithoutMemory([&] { return InitChangerFSCacheState(); }),
        (Chain{{"fail allocate changer FS list dictionary", "InitChangerFSCacheState", kSource}}));
    TermChangerFSCacheState();
}

// ---- memory ----

TEST_F(Registry, WithoutMemoryAnEntryIsAddedWholeOrNotAtAll) {
    const auto check = [&](const Chain&, bool failed) { EXPECT_EQ(IsMounted(kChanger), !failed); };
    EXPECT_THAT(
        SweepErrors([] { return AddChangerFSToList(kChanger, "sr0", "/first"); }, check),
        testing::IsSupersetOf({"fail CFNumberCreate", "fail create fs info dict",
                               "fail set changer BSD name", "fail set changer mount path value"}));
    EXPECT_EQ(PathOf(kChanger), "/first");
    Remove("sr0");
    EXPECT_FALSE(IsMounted(kChanger));
}

TEST_F(Registry, ErrorNamesTheValueThatCannotBeAdded) {
    {
        const RefusedKey refused("BSD Name");
        EXPECT_THAT(TakeMessages(AddChangerFSToList(kChanger, "sr0", "/x")),
                    Contains("fail set changer BSD name"));
    }
    const RefusedKey refused("Mount Path");
    EXPECT_THAT(TakeMessages(AddChangerFSToList(kChanger, "sr0", "/x")),
                Contains("fail set changer mount path value"));
    EXPECT_FALSE(IsMounted(kChanger));
}

TEST_F(Registry, WithoutMemoryLookupsFailAndChangeNothing) {
    Add(kChanger, "sr0", "/first");
    std::set<std::string> messages;
    bool isInList = false;
    char path[64];
    const auto note = [&](const Chain& chain, bool) {
        for (const RaisedLink& link : chain)
            messages.insert(link.function + ": " + link.message);
    };
    SweepErrors([&] { return IsChangerFSGUIDInList(kChanger, &isInList); }, note);
    SweepErrors([&] { return GetChangerFSMountPath(kChanger, path, sizeof path); }, note);
    SweepErrors([] { return RemoveChangerFSFromList("sr1"); }, note);
    EXPECT_THAT(messages,
                testing::IsSupersetOf({"IsChangerFSGUIDInList: fail CFNumberCreate",
                                       "GetChangerFSMountPath: fail CFNumberCreate",
                                       "RemoveChangerFSFromList: fail alloc keys storage",
                                       "RemoveChangerFSFromList: fail alloc values storage"}));
    EXPECT_TRUE(IsMounted(kChanger));
}

// ---- threads ----

// The walk of a single disc reads the registry while the main thread changes entries.
TEST_F(Registry, ConcurrentReadsAndChangesAreConsistent) {
    std::atomic<bool> stop = false;
    std::thread reader([&] {
        while (!stop) {
            char path[64] = "";
            bool isInList = false;
            EXPECT_EQ(IsChangerFSGUIDInList(kChanger, &isInList), nullptr);
            VErrLink* err = GetChangerFSMountPath(kChanger, path, sizeof path);
            if (err == nullptr) {
                EXPECT_THAT(path,
                            testing::AnyOf(testing::StrEq("/first"), testing::StrEq("/second")));
            }
            VErrCatch(&err);
        }
    });
    for (int round = 0; round < 2000; ++round) {
        Add(kChanger, "sr0", "/first");
        Add(kChanger, "sr1", "/second");
        Remove("sr1");
    }
    stop = true;
    reader.join();
}

} // namespace
