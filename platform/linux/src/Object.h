#ifndef PLATFORM_OBJECT_H
#define PLATFORM_OBJECT_H

/*
 * What every object begins with, and the ways to hold one. References are counted atomically;
 * static objects count nothing. A class is a table of functions; the address of the table is the
 * type, so a checked cast is one comparison.
 */

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace cf {

struct Object;

struct Class {
    const char* name;
    void (*destroy)(Object* object) noexcept; // frees the object and what it holds
    // Called with two different objects of this class. NULL: equal only to itself.
    bool (*equal)(const Object* first, const Object* second) noexcept;
    // Equal objects give equal values. NULL: the address.
    std::uint32_t (*hash)(const Object* object) noexcept;
};

// The reference count of an object that lives as long as the program.
inline constexpr std::int32_t kStaticReferences = INT32_MIN;

struct Object {
    const Class* type;
    mutable std::atomic<std::int32_t> references;
    std::uint32_t hashValue; // for the class's own use

    constexpr explicit Object(const Class* objectType, std::int32_t count = 1) noexcept
        : type(objectType), references(count), hashValue(0) {}
};

void Retain(const Object* object) noexcept;
void Release(const Object* object) noexcept;
bool Equal(const Object* first, const Object* second) noexcept;
std::uint32_t Hash(const Object* object) noexcept;

// The object behind a public reference as T, or nullptr when it is not one. T names its class as
// T::kClass. The public types promise const where the object behind them may well be changed.
template <typename T>
T* As(CFTypeRef reference) noexcept {
    auto* object = static_cast<Object*>(const_cast<void*>(reference));
    return object != nullptr && object->type == &T::kClass ? static_cast<T*>(object) : nullptr;
}

// A reference that is released when it goes out of scope. T is an Object.
template <typename T>
class Owned {
  public:
    Owned() noexcept = default;
    Owned(Owned&& other) noexcept : object_(other.Detach()) {}
    Owned& operator=(Owned&& other) noexcept {
        Owned previous(object_);
        object_ = other.Detach();
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() {
        if (object_ != nullptr)
            Release(object_);
    }

    // Takes over the reference that a creation gave.
    static Owned Adopt(T* object) noexcept { return Owned(object); }
    // Adds a reference of its own.
    static Owned Share(T* object) noexcept {
        if (object != nullptr)
            Retain(object);
        return Owned(object);
    }

    T* Get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    // Hands the reference to the caller.
    T* Detach() noexcept { return std::exchange(object_, nullptr); }

  private:
    explicit Owned(T* object) noexcept : object_(object) {}
    T* object_ = nullptr;
};

} // namespace cf

#endif
