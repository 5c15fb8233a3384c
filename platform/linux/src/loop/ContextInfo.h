#ifndef PLATFORM_CONTEXTINFO_H
#define PLATFORM_CONTEXTINFO_H

#include <utility>

namespace cf {

/* The info of a callback context (CFRunLoopTimerContext, CFSocketContext): retained when the object
   is created and around each callout, released when the object is invalidated, with the context's
   retain and release functions if given. For the thread of the object's loop. */
class ContextInfo {
public:
    // Copies what it needs from `context`, which may be nullptr, and retains its info.
    template<typename Context>
    explicit ContextInfo(const Context* context) noexcept {
        if (context == nullptr)
            return;
        retain_ = context->retain;
        release_ = context->release;
        info_ = retain_ != nullptr ? const_cast<void*>(retain_(context->info)) : context->info;
    }
    ContextInfo(const ContextInfo&) = delete;
    ContextInfo& operator=(const ContextInfo&) = delete;
    ~ContextInfo() {
        Release();
    }

    // Releases the info; does nothing the second time.
    void Release() noexcept {
        if (release_ != nullptr)
            std::exchange(release_, nullptr)(info_);
    }

    // Calls function(info). The info is retained for the call, so function may invalidate the
    // object.
    template<typename Function>
    void Use(Function function) const {
        const auto release = release_;
        void* const info = info_;
        if (retain_ != nullptr)
            retain_(info);
        function(info);
        if (retain_ != nullptr && release != nullptr)
            release(info);
    }

private:
    void* info_ = nullptr;
    const void* (*retain_)(const void* info) = nullptr;
    void (*release_)(const void* info) = nullptr;
};

} // namespace cf

#endif
