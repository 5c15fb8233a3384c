/* Reading a file during a short shortage of a resource. */

#include "Calls.h"
#include "FaultSweep.h"
#include "files/FileContents.h"
#include "support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>

namespace {

using namespace std::chrono_literals;

// EIO is an error of the file: reading it again would not help.
bool IsShortage(const SystemCallFailure& failure) {
    return failure.error != EIO;
}

class FileContentsSweep : public testing::Test {
protected:
    FileContentsSweep() {
        tree_.Write("file", "content");
        tree_.Link("file", "link");
    }

    const TemporaryTree tree_;
};

TEST_F(FileContentsSweep, FileIsReadWhenTheShortageHasEnded) {
    std::size_t faults = 0;
    for (const SystemCallFailure& failure : SystemCallFailures()) {
        cf::FileContents contents;
        faults += SweepSystemCall(
            failure, [&] { contents = cf::ReadFileWithin(1h, tree_.Path("link"), 100); },
            [&](const Fault& fault) {
                EXPECT_TRUE(contents.isRead || !IsShortage(failure)) << fault.what;
            });
    }
    EXPECT_GT(faults, 0U);
}

TEST_F(FileContentsSweep, LastingShortageEndsAtTheTimeOut) {
    const SystemCallFailure failure = {kThreadStart, EAGAIN};
    const SystemCallFault fault(failure, 1);
    const cf::FileContents contents = cf::ReadFileWithin(0ms, tree_.Path("file"), 100);
    EXPECT_FALSE(contents.isOpened);
    EXPECT_TRUE(contents.isShortage);
}

} // namespace
