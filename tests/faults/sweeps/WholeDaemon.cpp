#include "WholeDaemon.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "support/RecordedTimer.h"
#include "trayprobed/ChangerFSCacheState.h"

#include <cstddef>
#include <filesystem>
#include <system_error>

namespace {

void TimeOutIfAllocationsFail(CFRunLoopTimerRef timer, void* info) {
    if (AllocationFault::WillHappenAgain())
        HandleSocketTimeout(timer, info);
}

} // namespace

extern "C" {
CFRunLoopTimerRef __wrap_CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                              CFTimeInterval interval, CFOptionFlags flags,
                                              CFIndex order, CFRunLoopTimerCallBack callout,
                                              CFRunLoopTimerContext* context) {
    constexpr CFTimeInterval kInterval = 0.001;
    if (callout == HandleSocketTimeout)
        return __real_CFRunLoopTimerCreate(allocator, 0, kInterval, 0, 0, TimeOutIfAllocationsFail,
                                           context);
    if (callout == ChangerFSCache)
        NumberReferences::NoteKept(context->info);
    return __real_CFRunLoopTimerCreate(allocator, fireDate, interval, flags, order, callout,
                                       context);
}
}

WholeDaemon::WholeDaemon() {
    EXPECT_EQ(InitChangerFSCacheState(), nullptr);
}

WholeDaemon::~WholeDaemon() {
    TermChangerFSCacheState();
}

void WholeDaemon::MakeFileSystem() const {
    tree_.MakeChangerRoot("", kSweptChanger);
    tree_.MakeMediaRoot("disc", kSweptChanger, kSweptSlot);
    tree_.MakeDirectory("disc/folder/folder");
    tree_.Write("disc/file", "content");
}

void WholeDaemon::RegisterFileSystem() const {
    EXPECT_EQ(TakeChain(AddChangerFSToList(kSweptChanger, "sr0", tree_.Root().c_str())), Chain());
}

// The descriptors of this process that refer to files below `root`.
static std::size_t CountOpenIn(const std::string& root) {
    std::size_t count = 0;
    for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the iterator's own
        const auto file = std::filesystem::read_symlink(descriptor, gone);
        count += file.string().starts_with(root) ? 1U : 0U;
    }
    return count;
}

std::vector<std::string> WholeDaemon::ExpectSound(const Fault& fault, bool done) {
    EXPECT_EQ(CountOpenIn(tree_.Root()), 0U) << fault.what;
    EXPECT_EQ(StateLock::CountHeldMutexes(), 0) << fault.what;
    EXPECT_TRUE(done || fault.happened) << fault.what;
    auto lines = log_.TakeWithoutLineNumbers();
    EXPECT_TRUE(done || !lines.empty()) << fault.what << " was not logged";
    if (!fault.happened)
        EXPECT_THAT(lines, testing::IsEmpty()) << fault.what;
    return lines;
}
