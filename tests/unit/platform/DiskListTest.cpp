#include "disks/DiskList.h"

#include "loop/RunLoop.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <string>
#include <vector>

namespace disks {
namespace {

using Strings = std::vector<std::string>;

// No such paths: the probes get their answer, an error, at once.
Volume VolumeOf(std::uint64_t mount, const std::string& source = "none",
                dev_t device = makedev(0, 45)) {
    return {mount, device, "/", "/nonexistent/" + std::to_string(mount), source};
}

Volume BlockVolume(std::uint64_t mount, const std::string& source) {
    return VolumeOf(mount, source, makedev(8, 1));
}

class DiskListTest : public testing::Test {
protected:
    ~DiskListTest() override {
        CFRunLoopSourceInvalidate(answers_);
        CFRelease(answers_);
    }

    // The next events, as "+name" and "-name", for which it waits.
    Strings Events(std::size_t count) {
        list_.StartProbes(probes_);
        Strings events;
        while (events.size() < count) {
            const DiskEvent event = list_.TakeEvent();
            if (event.disk)
                events.push_back((event.appeared ? "+" : "-") + event.disk->name);
            else
                CFRunLoopRun();
        }
        return events;
    }

    DiskList list_;

private:
    static CFRunLoopSourceRef CreateAnswers() {
        CFRunLoopSourceRef source = cf::CreateSignalSource(
            cf::Runs::kEvery, [](void*) { CFRunLoopStop(CFRunLoopGetCurrent()); }, nullptr);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
        return source;
    }

    const CFRunLoopSourceRef answers_ = CreateAnswers();
    VolumeProbes probes_{answers_};
};

TEST_F(DiskListTest, NamesDisksByTheirDevice) {
    list_.Update({BlockVolume(1, "/dev/sr0")});
    EXPECT_EQ(Events(1), Strings{"+sr0"});
    list_.Update({VolumeOf(2, "/dev/fuse")});
    EXPECT_EQ(Events(2), (Strings{"-sr0", "+0:45"}));
}

TEST_F(DiskListTest, NamesDisksByTheirNumbersWhenTheDevicesNameIsUnusual) {
    for (const char* source : {"", "host:/share", "/dev/", "/dev/a b", "/dev/\xff",
                               "/dev/mapper/a-name-that-is-far-too-long-to-keep"}) {
        list_.Update({BlockVolume(1, source)});
        EXPECT_EQ(Events(1), Strings{"+8:1"}) << source;
        list_.Update({});
        EXPECT_EQ(Events(1), Strings{"-8:1"}) << source;
    }
}

TEST_F(DiskListTest, GivesNoNameTwiceAtATime) {
    list_.Update({BlockVolume(1, "/dev/sr0"), BlockVolume(2, "/dev/sr0"),
                  BlockVolume(3, "/dev/disk/sr0"), BlockVolume(4, "/dev/sr0s1")});
    Strings events = Events(4);
    std::ranges::sort(events);
    EXPECT_EQ(events, (Strings{"+sr0", "+sr0s1", "+sr0s1s1", "+sr0s2"}));
}

TEST_F(DiskListTest, GivesANameAgainOnceItsDiskHasGone) {
    list_.Update({BlockVolume(1, "/dev/sr0")});
    EXPECT_EQ(Events(1), Strings{"+sr0"});
    list_.Update({BlockVolume(2, "/dev/sr0")});
    EXPECT_EQ(Events(2), (Strings{"-sr0", "+sr0"}));
}

TEST_F(DiskListTest, KeepsTheNamesOfThoseThatStay) {
    list_.Update({BlockVolume(1, "/dev/sr0"), BlockVolume(2, "/dev/sr0")});
    Events(2);
    list_.Update({BlockVolume(2, "/dev/sr0"), BlockVolume(3, "/dev/sr0")});
    EXPECT_EQ(Events(2), (Strings{"-sr0", "+sr0"}));
    list_.Update({BlockVolume(3, "/dev/sr0")});
    EXPECT_EQ(Events(1), Strings{"-sr0s1"});
}

TEST_F(DiskListTest, TellsDisappearancesFirst) {
    list_.Update({BlockVolume(1, "/dev/sr0"), BlockVolume(2, "/dev/sr1")});
    Events(2);
    list_.Update({BlockVolume(2, "/dev/sr1"), BlockVolume(3, "/dev/sr2")});
    list_.Update({BlockVolume(3, "/dev/sr2")});
    EXPECT_EQ(Events(3), (Strings{"-sr0", "-sr1", "+sr2"}));
}

TEST_F(DiskListTest, NeverTellsOfWhatWentBeforeItAppeared) {
    list_.Update({BlockVolume(1, "/dev/sr0")});
    Events(0);
    list_.Update({});
    list_.Update({BlockVolume(2, "/dev/sr1")});
    EXPECT_EQ(Events(1), Strings{"+sr1"});
    EXPECT_FALSE(list_.TakeEvent().disk);
}

TEST_F(DiskListTest, TellsNothingWhenNothingChanged) {
    list_.Update({BlockVolume(1, "/dev/sr0")});
    Events(1);
    list_.Update({BlockVolume(1, "/dev/sr0")});
    Events(0);
    EXPECT_FALSE(list_.TakeEvent().disk);
}

} // namespace
} // namespace disks
