#include "loop/RunLoopSource.h"

#include "loop/RunLoopState.h"

#include <glib-unix.h>

#include <new>

namespace cf {
namespace {

void Notify(PerformCallback callout, const Source& source) noexcept {
    if (callout != nullptr)
        callout(source.info);
}

// Called by GLib on the loop's thread.
gboolean OnReadable(gint, GIOCondition, gpointer info) noexcept {
    auto& source = *static_cast<Source*>(info);
    Signal(source);
    source.watch.reset();
    return G_SOURCE_REMOVE;
}

// Watches the descriptor until it is readable. Perform() watches it again after the callout: a
// readable descriptor whose source may not perform yet would keep the loop from sleeping.
void Watch(Source& source) noexcept {
    if (source.descriptor < 0)
        return;
    source.signalled = false;
    source.watch.reset(g_unix_fd_source_new(source.descriptor, G_IO_IN));
    g_source_set_callback(source.watch.get(), G_SOURCE_FUNC(&OnReadable), &source, nullptr);
    g_source_attach(source.watch.get(), source.loop->context.Get());
}

void SetWakeContext(Source& source, LoopContext* context) noexcept {
    const std::lock_guard lock(source.wakeMutex);
    source.wakeContext = context;
}

void DestroyRunLoopSource(Object* object) noexcept {
    auto* source = static_cast<Source*>(object);
    if (source->valid)
        Notify(source->callouts.invalidated, *source);
    delete source;
}

} // namespace

Source* CreateSource(const SourceCallouts& callouts, void* info, RunLevel level,
                     int descriptor) noexcept {
    return new (std::nothrow) Source(callouts, info, level, descriptor);
}

void Signal(Source& source) noexcept {
    if (source.signalled.exchange(true))
        return;
    const std::lock_guard lock(source.wakeMutex);
    if (source.wakeContext != nullptr)
        source.wakeContext->Wake();
}

bool IsReady(const Source& source, bool nested) noexcept {
    return source.signalled && !source.callingOut &&
           (!nested || source.level != RunLevel::kOutermost);
}

bool HasInputBy(const Source& source, bool nested, Nanoseconds time) noexcept {
    return source.callouts.hasArrivedBy != nullptr && IsReady(source, nested) &&
           source.callouts.hasArrivedBy(source.info, time);
}

void Perform(Source& source) noexcept {
    source.signalled = false;
    source.callouts.perform(source.info);
    if (source.loop != nullptr && source.watch == nullptr)
        Watch(source);
}

void RemoveFromLoop(Source& source) noexcept {
    source.watch.reset();
    SetWakeContext(source, nullptr);
    Notify(source.callouts.removed, source);
    source.loop->sources.Remove(source);
}

void Invalidate(Source& source) noexcept {
    if (!source.valid)
        return;
    source.valid = false;
    const auto alive = Owned<Source>::Share(&source);
    if (source.loop != nullptr)
        RemoveFromLoop(source);
    Notify(source.callouts.invalidated, source);
}

CFRunLoopSourceRef CreateDescriptorSource(int descriptor, RunLevel level, PerformCallback perform,
                                          void* info) noexcept {
    const SourceCallouts callouts = {perform, nullptr, nullptr, nullptr};
    return CreateSource(callouts, info, level, descriptor);
}

CFRunLoopSourceRef CreateSignalSource(RunLevel level, PerformCallback perform,
                                      void* info) noexcept {
    return CreateDescriptorSource(-1, level, perform, info);
}

void SignalSource(CFRunLoopSourceRef source) noexcept {
    if (auto* target = As<Source>(source))
        Signal(*target);
}

} // namespace cf

constinit const cf::Class __CFRunLoopSource::kClass = {cf::DestroyRunLoopSource, nullptr, nullptr};

void CFRunLoopAddSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode) {
    auto* loop = cf::As<cf::RunLoop>(runLoop);
    auto* member = cf::As<cf::Source>(source);
    if (loop == nullptr || member == nullptr || !loop->sources.Add(*loop, *member, mode))
        return;
    cf::SetWakeContext(*member, &loop->context);
    cf::Watch(*member);
    cf::Notify(member->callouts.added, *member);
}

void CFRunLoopRemoveSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode) {
    cf::RemoveMember<cf::Source>(runLoop, source, mode);
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) {
    if (auto* target = cf::As<cf::Source>(source))
        cf::Invalidate(*target);
}
