#include "bench/TracedCall.h"

#include <gtest/gtest.h>

using bench::HasReturned;
using bench::TracedCall;

TEST(TracedCall, EndIsBeginPlusDuration) {
    const TracedCall call(
        "812 1795391251.75 epoll_wait(9, [{events=EPOLLIN}], 512, -1) = 1 <60.5>");
    EXPECT_DOUBLE_EQ(call.begin, 1795391251.75);
    EXPECT_DOUBLE_EQ(call.end, 1795391312.25);
}

TEST(TracedCall, ResumedCallHasItsEndForBothTimes) {
    const TracedCall call("812 1795391312.25 <... epoll_wait resumed>[], 512, -1) = 1 <60.5>");
    EXPECT_DOUBLE_EQ(call.begin, 1795391312.25);
    EXPECT_DOUBLE_EQ(call.end, 1795391312.25);
}

TEST(TracedCall, CallWithoutDurationEndsWhenItBegins) {
    for (const char* line :
         {"812 1795391312.25 exit(0) = ?", "812 1795391312.25 +++ exited with 0 +++",
          "812 1795391312.25 write(3, \"a <2> b\", 7) = ? <unavailable>"}) {
        SCOPED_TRACE(line);
        EXPECT_DOUBLE_EQ(TracedCall(line).end, 1795391312.25);
    }
}

TEST(TracedCall, LineIsKeptUnchanged) {
    EXPECT_EQ(TracedCall("812 1.5 close(3) = 0 <0.25>").line, "812 1.5 close(3) = 0 <0.25>");
}

TEST(TracedCall, CutOffLineHasNotReturned) {
    EXPECT_TRUE(HasReturned("812 1.5 close(3) = 0 <0.25>"));
    EXPECT_TRUE(HasReturned("812 1.5 <... close resumed>) = 0 <0.25>"));
    EXPECT_FALSE(HasReturned("812 1.5 close(3 <unfinished ...>"));
    EXPECT_FALSE(HasReturned("812 1.5 close(3 <detached ...>"));
    EXPECT_FALSE(HasReturned("812 1.5 <... close resumed> <detached ...>"));
}
