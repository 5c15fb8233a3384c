#ifndef TESTS_UNIT_COMMON_HELPERMEMBERS_H
#define TESTS_UNIT_COMMON_HELPERMEMBERS_H

/* The six families of number helpers, one type each, for typed tests. */

#include "common/CFHelpers.h"
#include "support/Chain.h"

#include <gtest/gtest.h>

#include <string>

#define DEFINE_HELPER_MEMBER(Word, adjustFailure)                                                  \
    struct Word##Member {                                                                          \
        using Native = Word;                                                                       \
        static constexpr char kWord[] = #Word;                                                     \
        static constexpr char kAdjustFailure[] = adjustFailure;                                    \
        static constexpr auto kDictionaryGet = CFHDictionaryGet##Word##Value;                      \
        static constexpr auto kDictionarySet = CFHDictionarySet##Word##Value;                      \
        static constexpr auto kDictionaryAdjust = CFHDictionaryAdjust##Word##Value;                \
        static constexpr auto kArrayGet = CFHArrayGet##Word##Value;                                \
        static constexpr auto kArraySet = CFHArraySet##Word##Value;                                \
        static constexpr auto kArrayAppend = CFHArrayAppend##Word##Value;                          \
        static constexpr auto kArrayAdjust = CFHArrayAdjust##Word##Value;                          \
    }

DEFINE_HELPER_MEMBER(SInt64, "fail get value from dict");
DEFINE_HELPER_MEMBER(UInt64, "fail get value from dict");
DEFINE_HELPER_MEMBER(SInt32, "fail get value");
DEFINE_HELPER_MEMBER(UInt32, "fail get value");
DEFINE_HELPER_MEMBER(SInt16, "fail get value");
DEFINE_HELPER_MEMBER(UInt16, "fail get value");

using HelperMembers = testing::Types<SInt64Member, UInt64Member, SInt32Member, UInt32Member,
                                     SInt16Member, UInt16Member>;

struct HelperMemberNames {
    template<typename Member>
    static std::string GetName(int) {
        return Member::kWord;
    }
};

inline RaisedLink RaisedByHelper(const std::string& function, const std::string& message,
                                 VErrCode code = kVErrCodeDefault) {
    return {message, function, "common/CFHelpers", code};
}

/* The chain of a failure that one function alone raises. */
inline Chain FailedIn(const std::string& function, const std::string& message,
                      VErrCode code = kVErrCodeDefault) {
    return {RaisedByHelper(function, message, code)};
}

#endif
