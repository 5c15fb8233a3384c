/* Descriptor 0, which any call may return in a process without a standard input. */

#include "Callouts.h"
#include "LocalServer.h"
#include "ResourceUsage.h"
#include "TestSocket.h"
#include "disks/VolumeProbes.h"
#include "files/FileContents.h"
#include "loop/Arrivals.h"
#include "loop/WallClockAlarm.h"

#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>

#include <glib.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/sysctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>

namespace {

bool IsZeroFree() {
    return fcntl(0, F_GETFD) == -1;
}

// Descriptor 0 is open, and closed on exec.
bool IsZeroTaken() {
    return fcntl(0, F_GETFD) == FD_CLOEXEC;
}

// Expects the body to return true in a child process without a standard input.
void ExpectWithoutInput(const std::function<bool()>& body) {
    const auto run = [&] {
        close(STDIN_FILENO);
        _exit(body() ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(DescriptorZeroTest, RunLoopOfAThreadUsesAndReleasesIt) {
    ExpectWithoutInput([] {
        bool isTaken = false;
        std::thread([&] { isTaken = CFRunLoopGetCurrent() != nullptr && IsZeroTaken(); }).join();
        return isTaken && IsZeroFree();
    });
}

TEST(DescriptorZeroTest, SourceIsPerformedWhenItIsReadable) {
    CFRunLoopGetCurrent(); // takes descriptors of its own
    ExpectWithoutInput([] {
        const int event = eventfd(1, EFD_CLOEXEC);
        TestSource source(StopCurrentRun, cf::RunLevel::kAny, event);
        CFRunLoopRun();
        return event == 0 && source.Count() == 1;
    });
}

TEST(DescriptorZeroTest, AlarmUsesItForEachDateAndReleasesIt) {
    GMainContext* const context = g_main_context_new();
    ExpectWithoutInput([context] {
        const std::size_t before = CountDescriptors();
        bool isSet = false;
        {
            cf::WallClockAlarm alarm;
            isSet = alarm.Set(context, 1'000'000 * cf::kSecond) && IsZeroTaken() &&
                    alarm.Set(context, 2'000'000 * cf::kSecond);
            isSet = isSet && CountDescriptors() == before + 1;
        }
        return isSet && CountDescriptors() == before;
    });
    g_main_context_unref(context);
}

TEST(DescriptorZeroTest, DeadlineUsesAndReleasesIt) {
    const LocalServer server;
    ExpectWithoutInput([&server] {
        const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
        const TestSocket socket(server); // deadlines are watched from the first socket on
        CFRunLoopGetCurrent();
        close(input);
        itimerspec setting = {};
        {
            const TestTimer timer(CFAbsoluteTimeGetCurrent() + 1000, 0, [] {});
            if (!IsZeroTaken() || timerfd_gettime(0, &setting) != 0)
                return false;
        }
        return setting.it_value.tv_sec > 0 && IsZeroFree();
    });
}

TEST(DescriptorZeroTest, ArrivalsStartWithItOnce) {
    ExpectWithoutInput([] {
        if (!cf::StartArrivals() || !IsZeroTaken() || !cf::AreArrivalsStarted())
            return false;
        const std::size_t descriptors = CountDescriptors();
        return cf::StartArrivals() && CountDescriptors() == descriptors;
    });
}

TEST(DescriptorZeroTest, CanBeWatchedAndUnwatched) {
    ExpectWithoutInput([] {
        const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
        cf::StartArrivals();
        close(input);
        const int event = eventfd(0, EFD_CLOEXEC);
        const std::lock_guard lock(cf::ArrivalsMutex());
        cf::WatchedDescriptor watched([](cf::WatchedDescriptor&, cf::Nanoseconds) noexcept {});
        const bool isWatched = event == 0 && watched.Watch(event) && watched.IsWatched();
        watched.Unwatch();
        return isWatched && !watched.IsWatched() && watched.Watch(event); // no longer taken
    });
}

TEST(DescriptorZeroTest, SocketExchangesDataAndReleasesIt) {
    const LocalServer server;
    CFRunLoopGetCurrent();
    ExpectWithoutInput([&server] {
        TestSocket socket(server);
        if (!IsZeroTaken() || socket.Send("request") != kCFSocketSuccess)
            return false;
        const Peer peer = server.Accept();
        if (peer.Read(7) != "request")
            return false;
        peer.Write("reply");
        socket.atChunk = StopCurrentRun;
        socket.AddToLoop();
        CFRunLoopRun();
        socket.Drop();
        return socket.Received() == "reply" && IsZeroFree();
    });
}

TEST(DescriptorZeroTest, SocketReleasedWithoutInvalidationReleasesIt) {
    const LocalServer server;
    ExpectWithoutInput([&server] {
        TestSocket socket(server);
        const bool isTaken = IsZeroTaken();
        CFRelease(socket.Detach());
        return isTaken && IsZeroFree();
    });
}

TEST(DescriptorZeroTest, FileIsReadAndReleasesIt) {
    ExpectWithoutInput([] {
        errno = EMFILE; // of an earlier failure
        const cf::FileContents contents = cf::ReadFile("/etc/passwd", 10);
        return contents.isOpened && contents.isRead && !contents.isShortage &&
               contents.bytes.size() == 10 && IsZeroFree();
    });
}

TEST(DescriptorZeroTest, VolumeProbeReleasesIt) {
    CFRunLoopGetCurrent();
    ExpectWithoutInput([] {
        TestSource answers(StopCurrentRun);
        disks::VolumeProbes probes(answers.Get());
        const auto probe = probes.Start("/");
        CFRunLoopRun();
        return probe->done && IsZeroFree();
    });
}

TEST(DescriptorZeroTest, DiskSessionUsesAndReleasesIt) {
    ExpectWithoutInput([] {
        DASessionRef session = DASessionCreate(kCFAllocatorDefault);
        const bool isTaken = session != nullptr && IsZeroTaken();
        CFRelease(session);
        return isTaken && IsZeroFree();
    });
}

TEST(DescriptorZeroTest, ProcessIsReadAndReleasesIt) {
    ExpectWithoutInput([] {
        int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, getpid()};
        kinfo_proc record = {};
        std::size_t length = sizeof record;
        return sysctl(name, 4, &record, &length, nullptr, 0) == 0 &&
               record.kp_proc.p_pid == getpid() && IsZeroFree();
    });
}

} // namespace
