#ifndef TESTS_UNIT_SUPPORT_CFOWNED_H
#define TESTS_UNIT_SUPPORT_CFOWNED_H

/* References that a test owns. */

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

/* An owned reference, or none: released with the owner. Converts to the plain reference. */
template<typename Reference>
class CFOwned {
public:
    CFOwned() noexcept = default;
    // Takes over the caller's reference.
    explicit CFOwned(Reference owned) noexcept : reference_(owned) {}
    CFOwned(CFOwned&& other) noexcept : reference_(other.Detach()) {}
    template<typename Other>
    CFOwned(CFOwned<Other>&& other) noexcept : reference_(other.Detach()) {}
    CFOwned(const CFOwned&) = delete;
    CFOwned& operator=(CFOwned&& other) noexcept {
        std::swap(reference_, other.reference_);
        return *this;
    }
    ~CFOwned() {
        Release();
    }

    operator Reference() const noexcept {
        return reference_;
    }
    // The same, where the type must be deduced.
    Reference Get() const noexcept {
        return reference_;
    }
    // Hands the reference over to the caller.
    Reference Detach() noexcept {
        return std::exchange(reference_, nullptr);
    }
    // For an out parameter: releases the reference and gives the place for a new one.
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

/* Retains an object of another owner. */
template<typename Reference>
CFOwned<Reference> Share(Reference borrowed) {
    if (borrowed != nullptr)
        CFRetain(borrowed);
    return CFOwned<Reference>(borrowed);
}

#endif
