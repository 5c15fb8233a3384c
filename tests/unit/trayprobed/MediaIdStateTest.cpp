#include "RefusedKey.h"
#include "Store.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <cerrno>
#include <initializer_list>
#include <set>

// The real function may end the process without a dictionary, and needs the keys.
extern "C" {
void __real_CFDictionaryGetKeysAndValues(CFDictionaryRef dict, const void** keys,
                                         const void** values);

void __wrap_CFDictionaryGetKeysAndValues(CFDictionaryRef dict, const void** keys,
                                         const void** values) {
    EXPECT_NE(dict, nullptr);
    EXPECT_NE(keys, nullptr);
    __real_CFDictionaryGetKeysAndValues(dict, keys, values);
}
}

namespace {

constexpr const char* kSource = "trayprobed/MediaIdState";

RaisedLink Raised(const char* message, const char* function, VErrCode code = kVErrCodeDefault) {
    return {message, function, kSource, code};
}

// ---- lifecycle and state lock ----

class StoreLifecycle : public testing::Test {
protected:
    static bool IsKnown() {
        SInt32 isKnown = 2;
        EXPECT_EQ(IsChangerInList(kChanger, &isKnown), nullptr);
        return isKnown != 0;
    }

    LogCapture log_;
    const int destroyedBefore_ = StateLock::DestroyedCount();
};

TEST_F(StoreLifecycle, TermWithoutInitDoesNothing) {
    TermMediaIdState();
    TermMediaIdState();
    EXPECT_EQ(StateLock::DestroyedCount(), destroyedBefore_);
}

TEST_F(StoreLifecycle, StoreIsEmptyAfterTermAndAfterEachInit) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(StateLock::InitStore(), nullptr);
        EXPECT_FALSE(IsKnown());
        EXPECT_EQ(AddChangerToList(kChanger), nullptr);
        TermMediaIdState();
        EXPECT_FALSE(IsKnown());
    }
}

// A detached thread may call after Term.
TEST_F(StoreLifecycle, OperationsAfterTermFindNothing) {
    CFOwned<CFArrayRef> changers;
    SInt32 flag = 0;
    EXPECT_EQ(TakeChain(AddStorageElemToMediaIdInProgressList(kChanger, 5)),
              NotFoundThen("AddStorageElemToMediaIdInProgressList"));
    EXPECT_THAT(TakeMessages(AddChangerToList(kChanger)),
                ElementsAre("fail allocate changer dictionary"));
    EXPECT_EQ(SetChangerDictForGUID(kChanger, Dictionary()), nullptr);
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    EXPECT_EQ(GetChangerList(changers.Out()), nullptr);
    EXPECT_EQ(CFArrayGetCount(changers), 0);
    EXPECT_THAT(TakeMessages(MediaHasMountablePartitions(kChanger, 5, &flag, &flag)),
                ElementsAre("info list array is still NULL"));
}

TEST_F(StoreLifecycle, InitFailsWithoutAMutex) {
    StateLock::FailInit(EAGAIN);
    EXPECT_EQ(TakeChain(StateLock::InitStore()),
              (Chain{Raised("fail pthread_mutex_init", "InitMediaIdState", EAGAIN)}));
    EXPECT_THAT(TakeMessages(AddChangerToList(kChanger)),
                ElementsAre("fail allocate changer dictionary"));
    EXPECT_FALSE(IsKnown());
    TermMediaIdState();
    EXPECT_EQ(StateLock::DestroyedCount(), destroyedBefore_);
}

TEST_F(StoreLifecycle, NegativeMutexStatusIsTheErrorCode) {
    StateLock::FailInit(-3);
    EXPECT_EQ(TakeChain(StateLock::InitStore()).back().code, -3);
}

TEST_F(StoreLifecycle, WithoutMemoryInitFailsAndTermDestroysTheMutex) {
    EXPECT_EQ(ChainWithoutMemory(StateLock::InitStore),
              (Chain{Raised("fail create empty changer list dict", "InitMediaIdState")}));
    TermMediaIdState();
    EXPECT_EQ(StateLock::DestroyedCount(), destroyedBefore_ + 1);
}

TEST_F(StoreLifecycle, FailedDestructionOfTheMutexIsLogged) {
    ASSERT_EQ(StateLock::InitStore(), nullptr);
    StateLock::FailDestroy(EBUSY);
    TermMediaIdState();
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre("MediaIdState:123, TermMediaIdState: fail pthread_mutex_destroy (err = 16)"));
}

TEST_F(Store, StateLockIsHeldUntilUnlocked) {
    EXPECT_EQ(LockMediaIdState(), nullptr);
    EXPECT_TRUE(StateLock::IsHeld());
    UnlockMediaIdState();
    EXPECT_FALSE(StateLock::IsHeld());
}

TEST_F(Store, NoOperationTakesTheStateLock) {
    StateLock::FailLock(EINVAL);
    AddChanger(kChanger);
    SaveInfoList(Array());
    EXPECT_FALSE(IsInProgress(kChanger, 5));
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    EXPECT_EQ(TakeChain(LockMediaIdState()),
              (Chain{Raised("fail pthread_mutex_lock", "LockMediaIdState", EINVAL)}));
}

TEST_F(Store, FailedUnlockIsLogged) {
    ASSERT_EQ(LockMediaIdState(), nullptr);
    StateLock::FailUnlock(EPERM);
    UnlockMediaIdState();
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre("MediaIdState:123, UnlockMediaIdState: fail pthread_mutex_unlock (err = 1)"));
}

// ---- the global flag ----

TEST_F(Store, MediaAreIdentifiedByDefault) {
    SInt32 shouldId = 2;
    EXPECT_EQ(GetGlobalShouldIdMedia(&shouldId), nullptr);
    EXPECT_EQ(shouldId, 1);
    EXPECT_EQ(SetGlobalShouldIdMedia(0), nullptr);
    EXPECT_EQ(GetGlobalShouldIdMedia(&shouldId), nullptr);
    EXPECT_EQ(shouldId, 0);
    EXPECT_EQ(SetGlobalShouldIdMedia(1), nullptr);
}

// ---- changers ----

TEST_F(Store, ChangerNeverAddedIsNotFound) {
    CFOwned<CFMutableDictionaryRef> dict;
    EXPECT_EQ(
        TakeChain(GetChangerDictForGUID(kChanger, dict.Out())),
        (Chain{Raised("fail find changer in list", "GetChangerDictForGUID", kVErrCodeNotFound)}));
    EXPECT_EQ(dict, nullptr);
    EXPECT_EQ(kVErrCodeNotFound, 0x4000000000000014);
    EXPECT_FALSE(IsKnown(kChanger));
}

TEST_F(Store, OperationsOnAnUnknownChangerFail) {
    UInt32 count = 0;
    SInt32 flag = 0;
    EXPECT_EQ(TakeChain(AddStorageElemToMediaIdInProgressList(kChanger, 5)),
              NotFoundThen("AddStorageElemToMediaIdInProgressList"));
    EXPECT_EQ(TakeChain(RemoveStorageElemFromMediaIdInProgressList(kChanger, 5)),
              NotFoundThen("RemoveStorageElemFromMediaIdInProgressList"));
    EXPECT_EQ(TakeChain(GetMediaIdInProgressCount(kChanger, &count)),
              NotFoundThen("GetMediaIdInProgressCount"));
    EXPECT_EQ(TakeChain(IsStorageElemOnInProgressList(kChanger, 5, &flag)),
              NotFoundThen("IsStorageElemOnInProgressList"));
    EXPECT_EQ(TakeChain(GetChangerFSCacheBuildInProgress(kChanger, &flag)),
              NotFoundThen("GetChangerFSCacheBuildInProgress"));
    EXPECT_EQ(TakeChain(SetChangerFSCacheBuildInProgress(kChanger, 1)),
              NotFoundThen("SetChangerFSCacheBuildInProgress"));
    EXPECT_EQ(TakeChain(GetChangerShouldAbortOperation(kChanger, &flag)),
              NotFoundThen("GetChangerShouldAbortOperation"));
    EXPECT_EQ(TakeChain(SetChangerShouldAbortOperation(kChanger, 1)),
              NotFoundThen("SetChangerShouldAbortOperation"));
    EXPECT_FALSE(IsKnown(kChanger));
}

TEST_F(Store, AddedChangerIsFoundByAll64BitsOfItsGuid) {
    AddChanger(kChanger);
    EXPECT_TRUE(IsKnown(kChanger));
    EXPECT_FALSE(IsKnown(kOtherChanger));
    EXPECT_EQ(XmlOf(StateOf(kChanger)),
              XmlOf(Dictionary({{"GUID", kChanger}, {"In Progress", Array()}})));
}

TEST_F(Store, AddingAgainResetsTheState) {
    AddChanger(kChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(SetChangerFSCacheBuildInProgress(kChanger, 1), nullptr);
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    AddChanger(kChanger);
    EXPECT_EQ(InProgressCount(kChanger), 0U);
    EXPECT_FALSE(IsBuilding(kChanger));
    EXPECT_FALSE(ShouldAbort(kChanger));
}

TEST_F(Store, RemovalDropsTheStateOfThatChangerOnly) {
    AddChanger(kChanger);
    AddChanger(kOtherChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kOtherChanger, 5), nullptr);
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    EXPECT_FALSE(IsKnown(kChanger));
    EXPECT_TRUE(IsInProgress(kOtherChanger, 5));
}

TEST_F(Store, ChangerListHasTheGuidsAsNumbers) {
    CFOwned<CFArrayRef> list;
    EXPECT_EQ(GetChangerList(list.Out()), nullptr);
    EXPECT_EQ(CFArrayGetCount(list), 0);

    AddChanger(kChanger);
    AddChanger(kOtherChanger);
    EXPECT_EQ(GetChangerList(list.Out()), nullptr);
    std::set<UInt64> guids;
    for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
        UInt64 guid = 0;
        EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(list, i)),
                                     kCFNumberSInt64Type, &guid));
        guids.insert(guid);
    }
    EXPECT_EQ(guids, (std::set{kChanger, kOtherChanger}));
}

TEST_F(Store, ChangedCopyTakesEffectOnceWrittenBack) {
    AddChanger(kChanger);
    const auto copy = StateOf(kChanger);
    CFDictionarySetValue(copy, CFSTR("Should Abort Operation"), kCFBooleanTrue);
    EXPECT_FALSE(ShouldAbort(kChanger));
    EXPECT_EQ(SetChangerDictForGUID(kChanger, copy), nullptr);
    EXPECT_TRUE(ShouldAbort(kChanger));
}

TEST_F(Store, WritingTheStateOfAnUnknownChangerAddsIt) {
    EXPECT_EQ(SetChangerDictForGUID(kChanger, Dictionary()), nullptr);
    EXPECT_TRUE(IsKnown(kChanger));
}

// ---- storage elements in progress ----

TEST_F(Store, ElementAddedTwiceIsOnTheListOnce) {
    AddChanger(kChanger);
    AddChanger(kOtherChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(InProgressCount(kChanger), 1U);
    EXPECT_TRUE(IsInProgress(kChanger, 5));
    EXPECT_FALSE(IsInProgress(kChanger, 6));
    EXPECT_FALSE(IsInProgress(kOtherChanger, 5));
}

TEST_F(Store, RemovalLeavesOtherElementsOnTheList) {
    AddChanger(kChanger);
    for (const UInt16 elem : std::initializer_list<UInt16>{3, 5, 7})
        EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, elem), nullptr);
    EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, 9), nullptr);
    EXPECT_EQ(InProgressCount(kChanger), 2U);
    EXPECT_TRUE(IsInProgress(kChanger, 3));
    EXPECT_TRUE(IsInProgress(kChanger, 7));
}

TEST_F(Store, NumbersOfComparedElementsAreReleased) {
    AddChanger(kChanger);
    NumberReferences::MakeObjectsOfAll();
    for (const UInt16 elem : std::initializer_list<UInt16>{5, 5, 7})
        EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, elem), nullptr);
    EXPECT_TRUE(IsInProgress(kChanger, 5));
    for (const UInt16 elem : std::initializer_list<UInt16>{5, 9})
        EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, elem), nullptr);
    EXPECT_FALSE(IsInProgress(kChanger, 5));
}

// The daemon itself never adds an equal number twice.
TEST_F(Store, RemovalTakesTheFirstOfEqualElements) {
    ASSERT_EQ(SetChangerDictForGUID(kChanger, Dictionary({{"In Progress", Array({5, 3, 5})}})),
              nullptr);
    EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(XmlOf(StateOf(kChanger)), XmlOf(Dictionary({{"In Progress", Array({3, 5})}})));
}

TEST_F(Store, ElementsAbove32767AreStoredAsNegativeNumbers) {
    AddChanger(kChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 40000), nullptr);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 0xFFFF), nullptr);
    EXPECT_TRUE(IsInProgress(kChanger, 40000));
    EXPECT_EQ(XmlOf(CFDictionaryGetValue(StateOf(kChanger), CFSTR("In Progress"))),
              XmlOf(Array({-25536, -1})));
    EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, 40000), nullptr);
    EXPECT_FALSE(IsInProgress(kChanger, 40000));
}

TEST_F(Store, UpdateReplacesTheListAndKeepsTheOldOne) {
    AddChanger(kChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 3), nullptr);
    const auto before = StateOf(kChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, 3), nullptr);
    EXPECT_EQ(XmlOf(CFDictionaryGetValue(before, CFSTR("In Progress"))), XmlOf(Array({3})));
}

TEST_F(Store, MissingListIsAnError) {
    UInt32 count = 0;
    SInt32 isOnList = 0;
    for (const auto& state : {Dictionary(), Dictionary({{"In Progress", "5"}})}) {
        ASSERT_EQ(SetChangerDictForGUID(kChanger, state), nullptr);
        EXPECT_EQ(
            TakeChain(AddStorageElemToMediaIdInProgressList(kChanger, 5)),
            (Chain{Raised("fail get in progress array", "AddStorageElemToMediaIdInProgressList")}));
        EXPECT_EQ(TakeChain(RemoveStorageElemFromMediaIdInProgressList(kChanger, 5)),
                  (Chain{Raised("fail get in progress arr",
                                "RemoveStorageElemFromMediaIdInProgressList")}));
        EXPECT_EQ(TakeChain(GetMediaIdInProgressCount(kChanger, &count)),
                  (Chain{Raised("fail get in progress arr", "GetMediaIdInProgressCount")}));
        EXPECT_EQ(TakeChain(IsStorageElemOnInProgressList(kChanger, 5, &isOnList)),
                  (Chain{Raised("fail get in progress arr", "IsStorageElemOnInProgressList")}));
    }
}

TEST_F(Store, ChangerWithoutMemoryForItsStateIsNotAdded) {
    for (const char* key : {"GUID", "In Progress"}) {
        const RefusedKey refused(key);
        EXPECT_EQ(TakeChain(AddChangerToList(kChanger)),
                  (Chain{Raised("fail allocate changer dictionary", "AddChangerToList")}));
        EXPECT_FALSE(IsKnown(kChanger)) << key;
    }
}

// ---- flags ----

TEST_F(Store, FailedFlagNamesItsSetterAndIsUnchanged) {
    AddChanger(kChanger);
    {
        const RefusedKey refused("Changer FS Cache Build In Progress");
        EXPECT_EQ(
            TakeChain(SetChangerFSCacheBuildInProgress(kChanger, 1)),
            (Chain{Raised("fail CFHDictionarySetBoolValue", "SetChangerFSCacheBuildInProgress")}));
    }
    const RefusedKey refused("Should Abort Operation");
    EXPECT_EQ(TakeChain(SetChangerShouldAbortOperation(kChanger, 1)),
              (Chain{Raised("fail CFHDictionarySetBoolValue", "SetChangerShouldAbortOperation")}));
    EXPECT_FALSE(IsBuilding(kChanger));
    EXPECT_FALSE(ShouldAbort(kChanger));
}

TEST_F(Store, FailureSetsTheCallersReferenceToNull) {
    const auto earlier = Dictionary();
    const auto earlierList = Array();
    CFMutableDictionaryRef dict = earlier;
    CFArrayRef list = earlierList;
    EXPECT_NE(TakeChain(GetChangerDictForGUID(kOtherChanger, &dict)), Chain());
    EXPECT_EQ(dict, nullptr);
    EXPECT_EQ(ChainWithoutMemory([&] { return GetChangerList(&list); }),
              (Chain{Raised("fail alloc changer GUID buffer", "GetChangerList")}));
    EXPECT_EQ(list, nullptr);
}

TEST_F(Store, FlagsAreFalseUntilSet) {
    AddChanger(kChanger);
    EXPECT_FALSE(IsBuilding(kChanger));
    EXPECT_FALSE(ShouldAbort(kChanger));

    EXPECT_EQ(SetChangerFSCacheBuildInProgress(kChanger, 1), nullptr);
    EXPECT_TRUE(IsBuilding(kChanger));
    EXPECT_FALSE(ShouldAbort(kChanger));
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    EXPECT_EQ(SetChangerFSCacheBuildInProgress(kChanger, 0), nullptr);
    EXPECT_FALSE(IsBuilding(kChanger));
    EXPECT_TRUE(ShouldAbort(kChanger));
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 0), nullptr);
    EXPECT_FALSE(ShouldAbort(kChanger));
}

TEST_F(Store, OnlyTheTrueObjectIsTrue) {
    for (const Value& value : {Value(1), Value("true"), Value(Array({true}))}) {
        ASSERT_EQ(SetChangerDictForGUID(kChanger,
                                        Dictionary({{"Changer FS Cache Build In Progress", value},
                                                    {"Should Abort Operation", value}})),
                  nullptr);
        EXPECT_FALSE(IsBuilding(kChanger));
        EXPECT_FALSE(ShouldAbort(kChanger));
    }
}

TEST_F(Store, FlagsAreStoredUnderTheirKeys) {
    AddChanger(kChanger);
    EXPECT_EQ(SetChangerFSCacheBuildInProgress(kChanger, 1), nullptr);
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 0), nullptr);
    EXPECT_EQ(XmlOf(StateOf(kChanger)),
              XmlOf(Dictionary({{"GUID", kChanger},
                                {"In Progress", Array()},
                                {"Changer FS Cache Build In Progress", true},
                                {"Should Abort Operation", false}})));
}

} // namespace
