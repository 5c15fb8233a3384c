#ifndef TESTS_UNIT_SUPPORT_HELD_H
#define TESTS_UNIT_SUPPORT_HELD_H

/* References that a test owns. */

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

/* An owned reference, or none. Converts to what the calls take; Out() is for out parameters. */
template<typename Reference>
class Held {
public:
    Held() noexcept = default;
    explicit Held(Reference owned) noexcept : reference_(owned) {}
    Held(Held&& other) noexcept : reference_(other.Detach()) {}
    template<typename Other>
    Held(Held<Other>&& other) noexcept : reference_(other.Detach()) {}
    Held(const Held&) = delete;
    Held& operator=(Held&& other) noexcept {
        std::swap(reference_, other.reference_);
        return *this;
    }
    ~Held() {
        Release();
    }

    operator Reference() const noexcept {
        return reference_;
    }
    Reference Get() const noexcept {
        return reference_;
    }
    Reference Detach() noexcept {
        return std::exchange(reference_, nullptr);
    }
    // Empty, to be filled by a call.
    Reference* Out() noexcept {
        Release();
        return &reference_;
    }

private:
    void Release() noexcept {
        if (reference_ != nullptr)
            CFRelease(std::exchange(reference_, nullptr));
    }

    Reference reference_ = nullptr;
};

/* A further reference to what somebody else owns. */
template<typename Reference>
Held<Reference> Share(Reference borrowed) {
    if (borrowed != nullptr)
        CFRetain(borrowed);
    return Held<Reference>(borrowed);
}

#endif
