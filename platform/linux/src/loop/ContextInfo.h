#ifndef PLATFORM_CONTEXTINFO_H
#define PLATFORM_CONTEXTINFO_H

#include <utility>

namespace cf {

/* The info of a callback context: retained when its object is made and for each callout, released
   when the object is invalidated, by the context's own functions where it names any. */
class ContextInfo {
public:
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

    void Release() noexcept {
        if (release_ != nullptr)
            std::exchange(release_, nullptr)(info_);
    }

    // Calls function with the info, which stays alive even when it is dropped meanwhile.
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
