/* The store when memory is short: each allocation of each operation fails in turn. */

#include "Store.h"
#include "support/WithoutMemory.h"

#include <functional>
#include <set>
#include <string>

namespace {

class StoreMemory : public Store {
protected:
    StoreMemory() {
        AddChanger(kChanger);
    }

    // The changer's whole state as text.
    static std::string State() {
        CFOwned<CFMutableDictionaryRef> dict;
        TakeChain(GetChangerDictForGUID(kChanger, dict.Out()));
        return XmlOf(dict);
    }
    static void Prepare() {
        EXPECT_EQ(AddChangerToList(kChanger), nullptr);
        EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 40000), nullptr);
    }

    // Each failing allocation leaves the state unchanged. The set of the newest links' messages
    // must equal `expected`.
    static void ExpectAllOrNothing(const std::function<VErrLink*()>& operation,
                                   const std::set<std::string>& expected) {
        Prepare();
        const std::string before = State();
        ASSERT_EQ(TakeChain(operation()), Chain());
        const std::string after = State();
        Prepare();

        const auto check = [&](const Chain&, bool failed) {
            EXPECT_EQ(State(), failed ? before : after);
            Prepare();
        };
        EXPECT_EQ(SweepErrors(operation, check), expected);
    }
};

TEST_F(StoreMemory, FailedLookupChangesNothing) {
    SInt32 flag = 0;
    UInt32 count = 0;
    ExpectAllOrNothing([&] { return IsChangerInList(kChanger, &flag); },
                       {"fail alloc changer GUID number"});
    ExpectAllOrNothing([&] { return GetMediaIdInProgressCount(kChanger, &count); },
                       {"fail GetChangerDictForGUID"});
    ExpectAllOrNothing(
        [&] { return IsStorageElemOnInProgressList(kChanger, 40000, &flag); },
        {"fail create CFNumber for storage elem index", "fail GetChangerDictForGUID"});
    ExpectAllOrNothing([&] { return GetChangerFSCacheBuildInProgress(kChanger, &flag); },
                       {"fail GetChangerDictForGUID"});
    ExpectAllOrNothing([&] { return GetChangerShouldAbortOperation(kChanger, &flag); },
                       {"fail GetChangerDictForGUID"});
}

TEST_F(StoreMemory, FailedCopyChangesNothing) {
    ExpectAllOrNothing(
        [] {
            CFOwned<CFMutableDictionaryRef> dict;
            return GetChangerDictForGUID(kChanger, dict.Out());
        },
        {"fail alloc changer GUID number", "fail create mutable copy of found dictionary"});
    ExpectAllOrNothing(
        [] {
            CFOwned<CFArrayRef> list;
            return GetChangerList(list.Out());
        },
        {"fail alloc changer GUID buffer", "fail create changer list array"});
}

TEST_F(StoreMemory, FailedRemovalOrReplacementChangesNothing) {
    ExpectAllOrNothing([] { return RemoveChangerFromList(kChanger); },
                       {"fail alloc changer GUID number"});
    const auto state = Dictionary({{"In Progress", Array()}});
    ExpectAllOrNothing([&] { return SetChangerDictForGUID(kChanger, state); },
                       {"fail alloc changer GUID number"});
}

TEST_F(StoreMemory, FailedFlagSetterChangesNothing) {
    ExpectAllOrNothing([] { return SetChangerFSCacheBuildInProgress(kChanger, 1); },
                       {"fail GetChangerDictForGUID", "fail SetChangerDictForGUID"});
    ExpectAllOrNothing([] { return SetChangerShouldAbortOperation(kChanger, 1); },
                       {"fail GetChangerDictForGUID", "fail SetChangerDictForGUID"});
}

TEST_F(StoreMemory, FailedListUpdateChangesNothing) {
    ExpectAllOrNothing(
        [] { return AddStorageElemToMediaIdInProgressList(kChanger, 50000); },
        {"fail GetChangerDictForGUID", "fail create CFNumber from storage elem index",
         "fail create mutable copy of in progress array", "fail SetChangerDictForGUID"});
    ExpectAllOrNothing([] { return RemoveStorageElemFromMediaIdInProgressList(kChanger, 40000); },
                       {"fail GetChangerDictForGUID", "fail create CFNumber for storage elem index",
                        "fail create mutable copy of in progress arr",
                        "fail SetChangerDictForGUID"});
}

// Some lengths need a larger array, others do not.
TEST_F(StoreMemory, FailedInsertionChangesNoListOfAnyLength) {
    for (UInt16 count = 0; count < 20; ++count) {
        SweepErrors([=] { return AddStorageElemToMediaIdInProgressList(kChanger, count); },
                    [&](const Chain&, bool failed) {
                        EXPECT_EQ(InProgressCount(kChanger), failed ? count : count + 1U);
                    });
    }
}

TEST_F(StoreMemory, FailedAdditionChangesNothing) {
    ExpectAllOrNothing([] { return AddChangerToList(kChanger); },
                       {"fail alloc changer GUID number", "fail allocate changer dictionary",
                        "fail alloc media id in-progress array"});
}

} // namespace
