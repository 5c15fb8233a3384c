/* The saved changer info list, and its data about a medium. */

#include "NullElement.h"
#include "Store.h"
#include "support/Matchers.h"

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSource = "trayprobed/MediaIdState";

SInt32 ReferencesTo(CFTypeRef object) {
    return static_cast<const cf::Object*>(object)->references;
}

class MediaInfo : public Store {
protected:
    // Saves a list of one changer with these media.
    void SaveMedia(std::initializer_list<Value> media) {
        SaveInfoList(
            Array({Dictionary({{"GUID", kChanger}, {"Changer Media Info", Array(media)}})}));
    }
    std::vector<std::string> Messages(UInt16 storageElem) {
        return TakeMessages(
            MediaHasMountablePartitions(kChanger, storageElem, &identified_, &hasFileSystem_));
    }
    // {identified, has file system} of the medium
    std::pair<SInt32, SInt32> Answer(UInt16 storageElem) {
        identified_ = hasFileSystem_ = 2;
        EXPECT_EQ(TakeChain(MediaHasMountablePartitions(kChanger, storageElem, &identified_,
                                                        &hasFileSystem_)),
                  Chain());
        return {identified_, hasFileSystem_};
    }

    SInt32 identified_ = 2;
    SInt32 hasFileSystem_ = 2;
};

CFOwned<CFMutableDictionaryRef> Partition(bool hasFileSystem) {
    return Dictionary({{"Partition Has File System", hasFileSystem}});
}

CFOwned<CFMutableDictionaryRef> Medium(int identifyTime, std::initializer_list<Value> partitions) {
    return Dictionary(
        {{"Media Identify Time", identifyTime}, {"Media Partition Info", Array(partitions)}});
}

constexpr std::pair<SInt32, SInt32> kNeverIdentified = {0, 0};
constexpr std::pair<SInt32, SInt32> kWithoutFileSystem = {1, 0};
constexpr std::pair<SInt32, SInt32> kWithFileSystem = {1, 1};

TEST_F(MediaInfo, BeforeTheFirstListTheQueryFails) {
    EXPECT_EQ(TakeChain(MediaHasMountablePartitions(kChanger, 0, &identified_, &hasFileSystem_)),
              (Chain{{"info list array is still NULL", "MediaHasMountablePartitions", kSource}}));
    EXPECT_EQ(identified_, 0);
    EXPECT_EQ(hasFileSystem_, 0);
}

TEST_F(MediaInfo, BeforeTheFirstListNoChangerIsFound) {
    const auto earlier = Dictionary();
    CFDictionaryRef info = earlier;
    EXPECT_EQ(TakeChain(GetChangerInfoDict(kChanger, &info)),
              (Chain{{"fail find changer GUID 9EDCBA9876543210", "GetChangerInfoDict", kSource,
                      kVErrCodeNotFound}}));
    EXPECT_EQ(info, nullptr);
}

// A reader without the state lock may still use an earlier list.
TEST_F(MediaInfo, EarlierListsStayRetained) {
    const auto first = Array({1});
    const auto second = Array({2});
    SaveInfoList(first);
    EXPECT_EQ(ReferencesTo(first), 2);
    SaveInfoList(second);
    SaveInfoList(second);
    EXPECT_EQ(ReferencesTo(first), 2);
    EXPECT_EQ(ReferencesTo(second), 3);
    TermMediaIdState();
    EXPECT_EQ(ReferencesTo(first), 2);
    EXPECT_EQ(ReferencesTo(second), 2);
}

TEST_F(MediaInfo, FirstEntryOfAChangerIsFound) {
    const auto first = Dictionary({{"GUID", kChanger}, {"place", 1}});
    const auto again = Dictionary({{"GUID", kChanger}, {"place", 2}});
    SaveInfoList(Array({Dictionary({{"GUID", kOtherChanger}}), first, again}));
    CFDictionaryRef info = nullptr;
    const SInt32 references = ReferencesTo(first.Get());
    EXPECT_EQ(GetChangerInfoDict(kChanger, &info), nullptr);
    EXPECT_EQ(info, first.Get());
    EXPECT_EQ(ReferencesTo(first.Get()), references);
}

TEST_F(MediaInfo, AbsentChangerIsNotFound) {
    const auto earlier = Dictionary();
    CFDictionaryRef info = earlier;
    SaveInfoList(Array({Dictionary({{"GUID", kOtherChanger}})}));
    EXPECT_EQ(TakeChain(GetChangerInfoDict(kChanger, &info)),
              (Chain{{"fail find changer GUID 9EDCBA9876543210", "GetChangerInfoDict", kSource,
                      kVErrCodeNotFound}}));
    EXPECT_EQ(info, nullptr);
    EXPECT_EQ(TakeChain(MediaHasMountablePartitions(kChanger, 0, &identified_, &hasFileSystem_)),
              (Chain{{"fail find changer GUID 9EDCBA9876543210", "GetChangerInfoDict", kSource,
                      kVErrCodeNotFound},
                     {"fail GetChangerInfoDict", "MediaHasMountablePartitions", kSource,
                      kVErrCodeNotFound}}));
}

TEST_F(MediaInfo, NumberOfAnAbsentChangerIsLoggedInSixteenDigits) {
    SaveInfoList(Array());
    CFDictionaryRef info = nullptr;
    EXPECT_THAT(TakeMessages(GetChangerInfoDict(kSmallChanger, &info)),
                ElementsAre(std::string("fail find changer GUID ") + kSmallChangerText));
}

TEST_F(MediaInfo, EntryWithoutGuidEndsTheSearch) {
    CFDictionaryRef info = nullptr;
    for (const Value& broken : {Value(Dictionary()), Value("text"), Value(3), Value(Array())}) {
        SaveInfoList(Array({broken, Dictionary({{"GUID", kChanger}})}));
        EXPECT_THAT(TakeMessages(GetChangerInfoDict(kChanger, &info)),
                    ElementsAre("fail get value from dict", "fail get changerGUID"));
        EXPECT_EQ(info, nullptr);
    }
}

TEST_F(MediaInfo, IndexOfANullElementIsLogged) {
    SaveInfoList(Array(
        {Dictionary({{"GUID", kOtherChanger}}),
         Dictionary({{"GUID", kChanger},
                     {"Changer Media Info", Array({Medium(1, {Partition(false), Partition(false),
                                                              Partition(true)})})}})}));
    {
        const NullElement null(1);
        EXPECT_THAT(Messages(0),
                    ElementsAre("fail get changer dict at 1", "fail GetChangerInfoDict"));
    }
    {
        const NullElement null(2);
        EXPECT_THAT(Messages(0), ElementsAre("fail get partition info for 2"));
        EXPECT_EQ(hasFileSystem_, 0);
    }
    {
        const NullElement null(0, 1);
        EXPECT_THAT(Messages(0), ElementsAre("fail get info dictionary for sei 0"));
    }
}

TEST_F(MediaInfo, ListThatIsNoArrayCountsAsEmpty) {
    SaveInfoList(reinterpret_cast<CFArrayRef>(Dictionary({{"GUID", 1}}).Get()));
    EXPECT_THAT(Messages(0),
                ElementsAre("fail find changer GUID 9EDCBA9876543210", "fail GetChangerInfoDict"));
}

TEST_F(MediaInfo, MediumWithIdentifyTimeZeroIsNeverIdentifiedWhateverItsPartitions) {
    SaveMedia({Medium(0, {Partition(true)})});
    EXPECT_EQ(Answer(0), kNeverIdentified);
}

TEST_F(MediaInfo, OnePartitionWithAFileSystemSuffices) {
    SaveMedia({Medium(1, {}), Medium(2, {Partition(false), Partition(false)}),
               Medium(-3, {Partition(false), Partition(true), Dictionary()})});
    EXPECT_EQ(Answer(0), kWithoutFileSystem);
    EXPECT_EQ(Answer(1), kWithoutFileSystem);
    EXPECT_EQ(Answer(2), kWithFileSystem);
}

TEST_F(MediaInfo, MediaAreFoundByPosition) {
    SaveMedia({Medium(0, {}),
               Dictionary({{"Media Storage Element Index", 0}, {"Media Identify Time", 0}}),
               Medium(1, {Partition(true)})});
    EXPECT_EQ(Answer(2), kWithFileSystem);
    EXPECT_EQ(Answer(1), kNeverIdentified);
}

TEST_F(MediaInfo, QueryFailsWithoutMediaOrBeyondTheirNumber) {
    SaveInfoList(Array({Dictionary({{"GUID", kChanger}})}));
    EXPECT_THAT(Messages(0), ElementsAre("fail CFDictionaryGetValue"));
    SaveMedia({Medium(0, {})});
    EXPECT_THAT(Messages(1), ElementsAre("fail get info dictionary for sei 1"));
    EXPECT_THAT(Messages(40000), ElementsAre("fail get info dictionary for sei 40000"));
}

TEST_F(MediaInfo, QueryFailsWithoutAnIdentifyTime) {
    SaveMedia({Dictionary(), Dictionary({{"Media Identify Time", "1"}}), "text"});
    EXPECT_THAT(Messages(0),
                ElementsAre("fail get value from dict", "fail CFHDictionaryGetSInt32Value"));
    EXPECT_THAT(Messages(1),
                ElementsAre(StartsWith("fail get num as "), "fail CFHDictionaryGetSInt32Value"));
    EXPECT_THAT(Messages(2),
                ElementsAre("fail get value from dict", "fail CFHDictionaryGetSInt32Value"));
}

TEST_F(MediaInfo, QueryFailsWithoutPartitionsOnceIdentified) {
    SaveMedia({Dictionary({{"Media Identify Time", 1}}),
               Dictionary({{"Media Identify Time", 1}, {"Media Partition Info", 3}})});
    for (const UInt16 elem : std::initializer_list<UInt16>{0, 1}) {
        EXPECT_THAT(Messages(elem), ElementsAre("fail CFDictionaryGetValue"));
        EXPECT_EQ(identified_, 1);
        EXPECT_EQ(hasFileSystem_, 0);
    }
}

TEST_F(MediaInfo, PartitionWithoutABooleanEndsTheSearch) {
    SaveMedia({Medium(1, {Partition(false), Dictionary(), Partition(true)}),
               Medium(1, {Dictionary({{"Partition Has File System", 1}})})});
    EXPECT_THAT(Messages(0),
                ElementsAre("fail get value from dict", "fail check for fs on partition 1"));
    EXPECT_EQ(hasFileSystem_, 0);
    EXPECT_THAT(Messages(1),
                ElementsAre("bool neither true nor false", "fail check for fs on partition 0"));
}

} // namespace
