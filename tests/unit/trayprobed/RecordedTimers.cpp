#include "RecordedTimers.h"

#include "Journal.h"
#include "NumberReferences.h"
#include "trayprobed/MediaIdState.h"

#include <utility>

namespace {

bool g_isRecording = false;
bool g_failNext = false;
std::vector<RecordedTimer> g_timers;

const char* ModeName(CFStringRef mode) {
    return mode == kCFRunLoopDefaultMode   ? "default"
           : mode == kCFRunLoopCommonModes ? "common"
                                           : "unknown";
}

const char* LoopName(CFRunLoopRef loop) {
    return loop == CFRunLoopGetCurrent() ? "" : " in another loop";
}

} // namespace

extern "C" {
void __real_CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFStringRef mode);
void __real_CFRunLoopRemoveTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFStringRef mode);
void __real_CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

CFRunLoopTimerRef __wrap_CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                              CFTimeInterval interval, CFOptionFlags flags,
                                              CFIndex order, CFRunLoopTimerCallBack callout,
                                              CFRunLoopTimerContext* context) {
    if (callout == ChangerFSCache)
        NumberReferences::NoteKept(context->info);
    if (std::exchange(g_failNext, false))
        return nullptr;
    CFRunLoopTimerRef timer =
        __real_CFRunLoopTimerCreate(allocator, fireDate, interval, flags, order, callout, context);
    if (g_isRecording && timer != nullptr) {
        CFRetain(timer);
        g_timers.push_back({timer, fireDate, interval, flags, order, callout, *context});
    }
    return timer;
}

void __wrap_CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFStringRef mode) {
    if (g_isRecording)
        Journal::Add("add to %s%s", ModeName(mode), LoopName(loop));
    __real_CFRunLoopAddTimer(loop, timer, mode);
}

void __wrap_CFRunLoopRemoveTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFStringRef mode) {
    if (g_isRecording)
        Journal::Add("remove from %s%s", ModeName(mode), LoopName(loop));
    __real_CFRunLoopRemoveTimer(loop, timer, mode);
}

void __wrap_CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
    if (g_isRecording)
        Journal::Add("invalidate");
    __real_CFRunLoopTimerInvalidate(timer);
}
}

RecordedTimers::RecordedTimers() {
    g_timers.reserve(1000); // no allocation later: memory may be short
    g_isRecording = true;
}

RecordedTimers::~RecordedTimers() {
    g_isRecording = false;
    g_failNext = false;
    for (const RecordedTimer& each : std::exchange(g_timers, {})) {
        __real_CFRunLoopTimerInvalidate(each.timer);
        CFRelease(each.timer);
    }
}

const std::vector<RecordedTimer>& RecordedTimers::All() {
    return g_timers;
}

void RecordedTimers::FailNext() {
    g_failNext = true;
}
