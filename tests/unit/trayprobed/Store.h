#ifndef TESTS_UNIT_TRAYPROBED_STORE_H
#define TESTS_UNIT_TRAYPROBED_STORE_H

/* A fixture with the store of changers, and short functions to read the store. */

#include "NumberReferences.h"
#include "StateLock.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/PropertyLists.h"
#include "trayprobed/MediaIdState.h"

#include <gtest/gtest.h>

#include <vector>

/* Both are number objects in the store, not tagged references. */
constexpr UInt64 kChanger = 0x9EDCBA9876543210; // needs all 64 bits
constexpr UInt64 kOtherChanger = 0x5000C500ABCD1234;
constexpr const char* kChangerText = "9EDCBA9876543210";
/* Logged with leading zeros. */
constexpr UInt64 kSmallChanger = 0xAB;
constexpr const char* kSmallChangerText = "00000000000000AB";

/* The links of a store's function that is called for an unknown changer. */
inline Chain NotFoundThen(const char* function) {
    const char* const source = "trayprobed/MediaIdState";
    return {{"fail find changer in list", "GetChangerDictForGUID", source, kVErrCodeNotFound},
            {"fail GetChangerDictForGUID", function, source, kVErrCodeNotFound}};
}

class Store : public testing::Test {
protected:
    Store() {
        EXPECT_EQ(TakeChain(StateLock::InitStore()), Chain());
    }
    // The store never releases earlier lists, because a reader may still use them.
    ~Store() override {
        TermMediaIdState();
        for (CFArrayRef list : replacedLists_)
            CFRelease(list);
    }

    void AddChanger(UInt64 changerGUID) const {
        EXPECT_EQ(TakeChain(AddChangerToList(changerGUID)), Chain());
    }
    bool IsKnown(UInt64 changerGUID) const {
        return ReadFlag(IsChangerInList, changerGUID);
    }
    UInt32 InProgressCount(UInt64 changerGUID) const {
        UInt32 count = 999;
        EXPECT_EQ(TakeChain(GetMediaIdInProgressCount(changerGUID, &count)), Chain());
        return count;
    }
    bool IsInProgress(UInt64 changerGUID, UInt16 storageElem) const {
        return ReadFlag(IsStorageElemOnInProgressList, changerGUID, storageElem);
    }
    bool IsBuilding(UInt64 changerGUID) const {
        return ReadFlag(GetChangerFSCacheBuildInProgress, changerGUID);
    }
    bool ShouldAbort(UInt64 changerGUID) const {
        return ReadFlag(GetChangerShouldAbortOperation, changerGUID);
    }
    // A copy of the changer's state.
    static CFOwned<CFMutableDictionaryRef> StateOf(UInt64 changerGUID) {
        CFOwned<CFMutableDictionaryRef> state;
        EXPECT_EQ(TakeChain(GetChangerDictForGUID(changerGUID, state.Out())), Chain());
        return state;
    }
    static CFTypeRef TimerOf(UInt64 changerGUID) {
        return CFDictionaryGetValue(StateOf(changerGUID), CFSTR("FS Cache Timer"));
    }
    void SaveInfoList(CFArrayRef list) {
        EXPECT_EQ(SaveChangerInfoList(list), nullptr);
        NoteSavedList(list);
    }
    // Records that the store owns a reference to that list.
    void NoteSavedList(CFArrayRef list) {
        if (savedList_ != nullptr)
            replacedLists_.push_back(savedList_);
        savedList_ = list;
    }

    // Calls getter(arguments..., &flag), which must set the flag to 0 or 1.
    template<typename Getter, typename... Arguments>
    static bool ReadFlag(Getter getter, Arguments... arguments) {
        SInt32 flag = 2;
        EXPECT_EQ(TakeChain(getter(arguments..., &flag)), Chain());
        EXPECT_TRUE(flag == 0 || flag == 1) << flag;
        return flag == 1;
    }

    LogCapture log_;

private:
    const NumberReferences numberReferences_; // counted after the store's end
    CFArrayRef savedList_ = nullptr;
    std::vector<CFArrayRef> replacedLists_;
};

#endif
