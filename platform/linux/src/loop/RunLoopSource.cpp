#include "loop/RunLoopSource.h"

#include "loop/RunLoopState.h"

#include <glib-unix.h>

#include <new>

namespace cf {
namespace {

void Tell(Perform callout, const Source& source) noexcept {
    if (callout != nullptr)
        callout(source.info);
}

gboolean NoteReadable(gint, GIOCondition, gpointer info) noexcept {
    auto& source = *static_cast<Source*>(info);
    Signal(source);
    source.watch.reset();
    return G_SOURCE_REMOVE;
}

// The descriptor is watched until it is readable and then not before the callout is over: what
// may not be called out yet would keep the loop from sleeping.
void Watch(Source& source) noexcept {
    if (source.descriptor < 0)
        return;
    source.signalled = false;
    source.watch.reset(g_unix_fd_source_new(source.descriptor, G_IO_IN));
    g_source_set_callback(source.watch.get(), G_SOURCE_FUNC(&NoteReadable), &source, nullptr);
    g_source_attach(source.watch.get(), source.loop->context.Get());
}

void SetWakes(Source& source, LoopContext* context) noexcept {
    const std::lock_guard lock(source.wakeMutex);
    source.wakes = context;
}

void DestroyRunLoopSource(Object* object) noexcept {
    auto* source = static_cast<Source*>(object);
    if (source->valid)
        Tell(source->callouts.invalid, *source);
    delete source;
}

} // namespace

Source* CreateSource(const SourceCallouts& callouts, void* info, Runs runs,
                     int descriptor) noexcept {
    return new (std::nothrow) Source(callouts, info, runs, descriptor);
}

void Signal(Source& source) noexcept {
    if (source.signalled.exchange(true))
        return;
    const std::lock_guard lock(source.wakeMutex);
    if (source.wakes != nullptr)
        source.wakes->Wake();
}

bool IsReady(const Source& source, bool nested) noexcept {
    return source.signalled && !source.callingOut && !(nested && source.runs == Runs::kOutermost);
}

bool IsReadySince(const Source& source, bool nested, Nanoseconds moment) noexcept {
    return source.callouts.hasArrivedBy != nullptr && IsReady(source, nested) &&
           source.callouts.hasArrivedBy(source.info, moment);
}

void Serve(Source& source) noexcept {
    source.signalled = false;
    source.callouts.perform(source.info);
    if (source.loop != nullptr && source.watch == nullptr)
        Watch(source);
}

void Leave(Source& source) noexcept {
    source.watch.reset();
    SetWakes(source, nullptr);
    Tell(source.callouts.left, source);
    source.loop->sources.Leave(source);
}

void Invalidate(Source& source) noexcept {
    if (!source.valid)
        return;
    source.valid = false;
    const auto alive = Owned<Source>::Share(&source);
    if (source.loop != nullptr)
        Leave(source);
    Tell(source.callouts.invalid, source);
}

CFRunLoopSourceRef CreateDescriptorSource(int descriptor, Runs runs, Perform perform,
                                          void* info) noexcept {
    const SourceCallouts callouts = {perform, nullptr, nullptr, nullptr};
    return CreateSource(callouts, info, runs, descriptor);
}

CFRunLoopSourceRef CreateSignalSource(Runs runs, Perform perform, void* info) noexcept {
    return CreateDescriptorSource(-1, runs, perform, info);
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
    if (loop == nullptr || member == nullptr || !loop->sources.Join(*loop, *member, mode))
        return;
    cf::SetWakes(*member, &loop->context);
    cf::Watch(*member);
    cf::Tell(member->callouts.joined, *member);
}

void CFRunLoopRemoveSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode) {
    auto* loop = cf::As<cf::RunLoop>(runLoop);
    auto* member = cf::As<cf::Source>(source);
    if (loop != nullptr && member != nullptr && cf::IsRemovedBy(*member, *loop, mode))
        cf::Leave(*member);
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) {
    if (auto* target = cf::As<cf::Source>(source))
        cf::Invalidate(*target);
}
