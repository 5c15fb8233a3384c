#include "disks/DiskList.h"

#include "Callouts.h"

#include <gtest/gtest.h>

#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/types.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace {

std::mutex g_mutex;
std::condition_variable g_answers;
// The paths for which statfs() blocks, and the paths of all calls; guarded by g_mutex. Never
// destroyed: the threads of the probes may outlive main.
auto& g_silent = *new std::set<std::string>;
auto& g_probed = *new std::multiset<std::string>;

} // namespace

extern "C" {
int __real_statfs(const char* path, struct statfs* status);

int __wrap_statfs(const char* path, struct statfs* status) {
    std::unique_lock lock(g_mutex);
    g_probed.insert(path);
    g_answers.wait(lock, [path] { return !g_silent.contains(path); });
    return __real_statfs(path, status);
}
}

namespace disks {
namespace {

using Strings = std::vector<std::string>;

std::string PathOf(std::uint64_t mount) {
    return "/nonexistent/" + std::to_string(mount);
}

// The paths do not exist: the probe of a volume that is not silent fails at once, which is an
// answer.
Volume VolumeOf(std::uint64_t mount, const std::string& source = "none",
                dev_t device = makedev(0, 45)) {
    return {mount, device, "/", PathOf(mount), source};
}

Volume BlockVolume(std::uint64_t mount, const std::string& source) {
    return VolumeOf(mount, source, makedev(8, 1));
}

class DiskListTest : public testing::Test {
protected:
    ~DiskListTest() override {
        AnswerAll();
    }

    // The volumes that are mounted now, oldest first: "a" has the mount id 1, "b" 2...
    void Update(const std::string& names) {
        std::vector<Volume> volumes;
        for (const char name : names)
            volumes.push_back(BlockVolume(static_cast<std::uint64_t>(name - 'a' + 1),
                                          std::string("/dev/") + name));
        Update(std::move(volumes));
    }
    void Update(std::vector<Volume> volumes) {
        list_.Update(std::move(volumes), now_);
    }
    // The volumes time out before any later one is mounted.
    void UpdateAndTimeOut(const std::string& names, std::initializer_list<std::uint64_t> silent) {
        Silence(silent);
        Update(names);
        now_ += DiskList::kProbeTimeout;
    }
    static void Silence(std::initializer_list<std::uint64_t> mounts) {
        const std::lock_guard lock(g_mutex);
        for (const std::uint64_t mount : mounts)
            g_silent.insert(PathOf(mount));
    }
    static void Answer(std::uint64_t mount) {
        const std::lock_guard lock(g_mutex);
        g_silent.erase(PathOf(mount));
        g_answers.notify_all();
    }
    static std::size_t CountProbes(std::uint64_t mount) {
        const std::lock_guard lock(g_mutex);
        return g_probed.count(PathOf(mount));
    }
    static void AnswerAll() {
        const std::lock_guard lock(g_mutex);
        g_silent.clear();
        g_answers.notify_all();
    }
    // Waits for an answer for which there was no event yet.
    void AwaitAnswer() {
        list_.StartProbes(probes_);
        CFRunLoopRun();
    }
    // Clears the signal of answers for which there were events.
    void DrainAnswers() {
        list_.StartProbes(probes_);
        TestSource drain(StopCurrentRun);
        drain.Signal();
        while (drain.Count() == 0)
            CFRunLoopRun();
    }
    bool HasEvent() {
        return static_cast<bool>(list_.NextEvent(now_).disk);
    }

    // Waits for so many events: "+name" and "-name".
    Strings Events(std::size_t count) {
        list_.StartProbes(probes_);
        Strings events;
        while (events.size() < count) {
            const DiskEvent event = list_.NextEvent(now_);
            if (event.disk)
                events.push_back((event.appeared ? "+" : "-") + event.disk->name);
            else
                CFRunLoopRun();
        }
        return events;
    }

    DiskList list_;
    cf::Nanoseconds now_ = 0;

private:
    TestSource answers_{StopCurrentRun};
    VolumeProbes probes_{answers_.Get()};
};

TEST_F(DiskListTest, DiskHasTheNameOrNumbersOfItsDevice) {
    Update({BlockVolume(1, "/dev/sr0")});
    EXPECT_EQ(Events(1), Strings{"+sr0"});
    Update({VolumeOf(2, "/dev/fuse")});
    EXPECT_EQ(Events(2), (Strings{"-sr0", "+0:45"}));
}

TEST_F(DiskListTest, DiskOfAnUnusualDeviceNameHasItsNumbers) {
    for (const char* source : {"", "host:/share", "/dev/", "/dev/a b", "/dev/\xff",
                               "/dev/mapper/a-name-that-is-far-too-long-to-keep"}) {
        Update({BlockVolume(1, source)});
        EXPECT_EQ(Events(1), Strings{"+8:1"}) << source;
        Update("");
        EXPECT_EQ(Events(1), Strings{"-8:1"}) << source;
    }
}

TEST_F(DiskListTest, DisksOfOneDeviceHaveDifferentNames) {
    Update({BlockVolume(1, "/dev/sr0"), BlockVolume(2, "/dev/sr0"), BlockVolume(3, "/dev/disk/sr0"),
            BlockVolume(4, "/dev/sr0s1")});
    Strings events = Events(4);
    std::ranges::sort(events);
    EXPECT_EQ(events, (Strings{"+sr0", "+sr0s1", "+sr0s1s1", "+sr0s2"}));
}

TEST_F(DiskListTest, NameIsReusedAfterItsDiskHasGone) {
    Update({BlockVolume(1, "/dev/sr0")});
    EXPECT_EQ(Events(1), Strings{"+sr0"});
    Update({BlockVolume(2, "/dev/sr0")});
    EXPECT_EQ(Events(2), (Strings{"-sr0", "+sr0"}));
}

TEST_F(DiskListTest, NamesOfRemainingDisksStay) {
    Update({BlockVolume(1, "/dev/sr0"), BlockVolume(2, "/dev/sr0")});
    Events(2);
    Update({BlockVolume(2, "/dev/sr0"), BlockVolume(3, "/dev/sr0"), BlockVolume(4, "/dev/sr0")});
    EXPECT_EQ(Events(3), (Strings{"-sr0", "+sr0", "+sr0s2"}));
    Update({BlockVolume(3, "/dev/sr0"), BlockVolume(4, "/dev/sr0")});
    EXPECT_EQ(Events(1), Strings{"-sr0s1"});
}

TEST_F(DiskListTest, DisappearancesComeFirst) {
    Update({BlockVolume(1, "/dev/sr0"), BlockVolume(2, "/dev/sr1")});
    Events(2);
    Update({BlockVolume(2, "/dev/sr1"), BlockVolume(3, "/dev/sr2")});
    Update({BlockVolume(3, "/dev/sr2")});
    EXPECT_EQ(Events(3), (Strings{"-sr0", "-sr1", "+sr2"}));
}

TEST_F(DiskListTest, DiskThatGoesBeforeItAppearsHasNoEvent) {
    for (const bool isProbeStarted : {false, true}) {
        Update("a");
        if (isProbeStarted)
            Events(0);
        Update("b");
        EXPECT_EQ(Events(1), Strings{"+b"}) << isProbeStarted;
        EXPECT_FALSE(HasEvent()) << isProbeStarted;
        Update("");
        EXPECT_EQ(Events(1), Strings{"-b"});
    }
}

TEST_F(DiskListTest, VolumeThatGoesWhileItsProbeIsPendingIsNotProbed) {
    constexpr std::uint64_t kPending = VolumeProbes::kMaximumThreads + 1;
    std::vector<Volume> volumes;
    for (std::uint64_t mount = 1; mount <= kPending; ++mount)
        volumes.push_back(BlockVolume(mount, "/dev/sr" + std::to_string(mount)));
    for (const Volume& volume : volumes)
        Silence({volume.mount});
    Update(volumes);
    Events(0);
    volumes.back() = BlockVolume(kPending + 1, "/dev/sr0"); // probed after the others
    Update(volumes);
    AnswerAll();
    Events(volumes.size());
    EXPECT_GT(CountProbes(kPending + 1), 0U);
    EXPECT_EQ(CountProbes(kPending), 0U);
}

// The silent volumes occupy all threads but one: the other volumes are probed in order.
TEST_F(DiskListTest, VolumeIsProbedOnceHoweverOftenOthersCome) {
    static std::uint64_t mount = 1000; // unique for each volume, also when the test is repeated
    const std::uint64_t first = mount;
    std::vector<Volume> volumes;
    while (volumes.size() + 1 < VolumeProbes::kMaximumThreads) {
        Silence({mount});
        volumes.push_back(BlockVolume(mount++, "/dev/silent"));
    }
    Update(volumes);
    Events(0);
    now_ = DiskList::kProbeTimeout;
    volumes.push_back(BlockVolume(mount++, "/dev/known"));
    Update(volumes);
    EXPECT_EQ(Events(1), Strings{"+known"});
    volumes.push_back(BlockVolume(mount++, "/dev/new"));
    Update(volumes);
    Events(0);
    AnswerAll();
    while (Events(1)[0] != "+new") {
    }
    for (std::uint64_t each = first; each < mount; ++each)
        EXPECT_LE(CountProbes(each), 1U) << each - first;
}

TEST_F(DiskListTest, UnchangedVolumesHaveNoEvent) {
    Update({BlockVolume(1, "/dev/sr0")});
    Events(1);
    Update({BlockVolume(1, "/dev/sr0")});
    Events(0);
    EXPECT_FALSE(HasEvent());
}

// ---- the order of appearances ----

TEST_F(DiskListTest, AppearancesAreInTheOrderGiven) {
    Update("cab");
    EXPECT_EQ(Events(3), (Strings{"+c", "+a", "+b"}));
}

TEST_F(DiskListTest, YoungerDiskIsHeldBackUntilTheOlderOneAnswers) {
    Silence({1});
    Update("ab");
    AwaitAnswer();
    now_ = DiskList::kProbeTimeout - 1;
    EXPECT_FALSE(HasEvent());
    EXPECT_TRUE(list_.IsTimeoutPending(now_));
    Answer(1);
    EXPECT_EQ(Events(2), (Strings{"+a", "+b"}));
    EXPECT_FALSE(list_.HasRepeats());
    EXPECT_FALSE(list_.IsTimeoutPending(now_));
    EXPECT_FALSE(HasEvent());
}

TEST_F(DiskListTest, YoungerDiskIsHeldBackUntilTheOlderOneTimesOut) {
    Silence({1});
    Update("a");
    now_ = DiskList::kProbeTimeout / 2;
    Update("ab");
    AwaitAnswer();
    now_ = DiskList::kProbeTimeout;
    EXPECT_EQ(Events(1), Strings{"+b"});
    EXPECT_FALSE(list_.IsTimeoutPending(now_));
}

TEST_F(DiskListTest, DisksAppearAgainAfterAnOlderOneThatIsLate) {
    Silence({2});
    Update("ab");
    EXPECT_EQ(Events(1), Strings{"+a"});
    now_ = DiskList::kProbeTimeout;
    Update("abcd");
    EXPECT_EQ(Events(2), (Strings{"+c", "+d"}));
    EXPECT_FALSE(list_.HasRepeats());
    Answer(2);
    EXPECT_EQ(Events(1), Strings{"+b"});
    EXPECT_TRUE(list_.HasRepeats());
    EXPECT_EQ(Events(2), (Strings{"+c", "+d"}));
    EXPECT_FALSE(list_.HasRepeats());
    EXPECT_FALSE(HasEvent());
}

TEST_F(DiskListTest, DisksThatHaveGoneDoNotAppearAgain) {
    UpdateAndTimeOut("a", {1});
    Update("abc");
    EXPECT_EQ(Events(2), (Strings{"+b", "+c"}));
    Answer(1);
    EXPECT_EQ(Events(1), Strings{"+a"});
    Update("ac");
    EXPECT_EQ(Events(2), (Strings{"-b", "+c"}));
    EXPECT_FALSE(list_.HasRepeats());
}

TEST_F(DiskListTest, DisksThatHaveAppearedAgainDoNotAfterAChange) {
    UpdateAndTimeOut("a", {1});
    Update("abcd");
    EXPECT_EQ(Events(3), (Strings{"+b", "+c", "+d"}));
    Answer(1);
    EXPECT_EQ(Events(2), (Strings{"+a", "+b"}));
    Update("acde");
    EXPECT_EQ(Events(4), (Strings{"-b", "+c", "+d", "+e"}));
    EXPECT_FALSE(HasEvent());
}

TEST_F(DiskListTest, LateDiskAppearsBeforeYoungerOnesThatAppearAgain) {
    UpdateAndTimeOut("abc", {1, 3, 5});
    EXPECT_EQ(Events(1), Strings{"+b"});
    Update("abcd");
    EXPECT_EQ(Events(1), Strings{"+d"});
    Update("abcde");
    DrainAnswers();
    for (const std::uint64_t late : {std::uint64_t{1}, std::uint64_t{3}}) {
        Answer(late);
        AwaitAnswer();
    }
    EXPECT_EQ(Events(4), (Strings{"+a", "+b", "+c", "+d"}));
    EXPECT_FALSE(HasEvent());
}

TEST_F(DiskListTest, DiskThatWasFoundLastHoldsBackAlthoughItIsOlder) {
    Silence({1, 2});
    Update("b");
    now_ = DiskList::kProbeTimeout / 2;
    Update("ab"); // uncovered
    Events(0);
    now_ = DiskList::kProbeTimeout;
    EXPECT_TRUE(list_.IsTimeoutPending(now_));
    now_ += DiskList::kProbeTimeout / 2;
    EXPECT_FALSE(list_.IsTimeoutPending(now_));
}

TEST_F(DiskListTest, TimedOutDiskDoesNotHoldBackAfterANewerOneAppeared) {
    UpdateAndTimeOut("a", {1});
    Update("ab");
    EXPECT_EQ(Events(1), Strings{"+b"});
    EXPECT_FALSE(list_.IsTimeoutPending(now_));
}

TEST_F(DiskListTest, LateDisksThatAnswerInReverseAppearInOrder) {
    UpdateAndTimeOut("abc", {1, 2});
    EXPECT_EQ(Events(1), Strings{"+c"});
    Answer(2);
    EXPECT_EQ(Events(2), (Strings{"+b", "+c"}));
    Answer(1);
    EXPECT_EQ(Events(3), (Strings{"+a", "+b", "+c"}));
    Update("");
    EXPECT_EQ(Events(3), (Strings{"-a", "-b", "-c"}));
}

TEST_F(DiskListTest, RepeatedAppearanceIsNotHeldBack) {
    UpdateAndTimeOut("bc", {1, 2});
    EXPECT_EQ(Events(1), Strings{"+c"});
    Answer(2);
    EXPECT_EQ(Events(1), Strings{"+b"});
    Update("abc"); // uncovered
    EXPECT_EQ(Events(1), Strings{"+c"});
    EXPECT_FALSE(list_.HasRepeats());
}

} // namespace
} // namespace disks
