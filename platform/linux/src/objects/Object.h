#ifndef PLATFORM_OBJECT_H
#define PLATFORM_OBJECT_H

/*
 * The ways to make, hold and tell objects. References are counted atomically; static objects count
 * nothing. A class is a table of functions; the address of the table is the type, so a checked cast
 * is one comparison. The head of an object is declared with the constant strings.
 */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFConstantString.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

namespace cf {

struct Class {
    void (*destroy)(Object* object) noexcept; // frees the object and what it holds
    // Called with two different objects of this class. NULL: equal only to itself.
    bool (*equal)(const Object* first, const Object* second) noexcept;
    // Equal objects give equal values, below 2^24. NULL: the address.
    std::uint32_t (*hash)(const Object* object) noexcept;
};

/* Most integers have no object: the reference itself holds them (Number.h), marked by its lowest
   bit, which no address has. Nobody may look into such a reference. */
inline bool IsImmediate(const Object* object) noexcept {
    return (reinterpret_cast<std::uintptr_t>(object) & 1U) != 0;
}

void Release(const Object* object) noexcept;
bool Equal(const Object* first, const Object* second) noexcept;
std::uint32_t ComputeHash(const Object* object) noexcept;

/* What the public functions call a class. */
inline CFTypeID TypeIdOf(const Class& type) noexcept {
    return reinterpret_cast<CFTypeID>(&type);
}

inline void Retain(const Object* object) noexcept {
    if (!IsImmediate(object) && object->references.load(std::memory_order_relaxed) >= 0)
        object->references.fetch_add(1, std::memory_order_relaxed);
}

/* Release in two steps, for who must not recurse: true when the last reference went, and the
   object is now the caller's to Destroy. */
inline bool DropReference(const Object* object) noexcept {
    return !IsImmediate(object) && object->references.load(std::memory_order_relaxed) >= 0 &&
           object->references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}
void Destroy(const Object* object) noexcept;

inline std::uint32_t Hash(const Object* object) noexcept {
    return !IsImmediate(object) && object->hasHash ? object->hashValue : ComputeHash(object);
}

/* A new T, followed by that many bytes of its own; nullptr when memory is short. T needs no
   destructor: its class frees it with DestroyPlain, or with std::free after what it holds. */
template<typename T, typename... Arguments>
T* Allocate(std::size_t trailingBytes, Arguments... arguments) noexcept {
    void* memory = std::malloc(sizeof(T) + trailingBytes);
    return memory != nullptr ? new (memory) T(arguments...) : nullptr;
}

/* The destroy function of a class whose objects hold nothing. */
void DestroyPlain(Object* object) noexcept;

/* The object behind a public reference as T, or nullptr when it is not one. T names its class as
   T::kClass. Numbers are not asked for so (Number.h). The public types promise const where the
   object behind them may well be changed. */
template<typename T>
T* As(CFTypeRef reference) noexcept {
    auto* object = static_cast<Object*>(const_cast<void*>(reference));
    const bool isObject = object != nullptr && !IsImmediate(object);
    return isObject && object->type == &T::kClass ? static_cast<T*>(object) : nullptr;
}

inline const Object* AsObject(CFTypeRef reference) noexcept {
    return static_cast<const Object*>(reference);
}

/* A reference that is released when it goes out of scope. T is an Object. */
template<typename T>
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
    static Owned Adopt(T* object) noexcept {
        return Owned(object);
    }
    // Adds a reference of its own.
    static Owned Share(T* object) noexcept {
        if (object != nullptr)
            Retain(object);
        return Owned(object);
    }

    T* Get() const noexcept {
        return object_;
    }
    T* operator->() const noexcept {
        return object_;
    }
    explicit operator bool() const noexcept {
        return object_ != nullptr;
    }
    // Hands the reference to the caller.
    T* Detach() noexcept {
        return std::exchange(object_, nullptr);
    }

private:
    explicit Owned(T* object) noexcept : object_(object) {}
    T* object_ = nullptr;
};

} // namespace cf

#endif
