#ifndef PLATFORM_OBJECT_H
#define PLATFORM_OBJECT_H

/*
 * Objects: creation, reference counting, type checks. Counting is atomic; the count of a static
 * object never changes. A class is a table of functions, whose address is the type, so a checked
 * cast is one comparison. CFConstantString.h declares the header of an object. All functions are
 * safe on any thread, and references are not NULL unless stated.
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

/* The functions of a type of objects. */
struct Class {
    void (*destroy)(Object* object) noexcept; // frees the object and what it owns
    // Called with two distinct objects of this class. NULL: compared by identity.
    bool (*equal)(const Object* first, const Object* second) noexcept;
    // Equal objects have equal hashes, below 2^24. NULL: the hash of the address.
    std::uint32_t (*hash)(const Object* object) noexcept;
};

/* True for an immediate reference, which holds an integer (Number.h) and is marked by its lowest
   bit. It is not an address and must not be dereferenced. */
inline bool IsImmediate(const Object* object) noexcept {
    return (reinterpret_cast<std::uintptr_t>(object) & 1U) != 0;
}

/* Releases a reference, and destroys the object if it was the last one. */
void Release(const Object* object) noexcept;

/* CFEqual for references that are not NULL. */
bool Equal(const Object* first, const Object* second) noexcept;

/* The hash of the object, computed. Call Hash(), which uses the stored one. */
std::uint32_t ComputeHash(const Object* object) noexcept;

/* The public identifier of a class. */
inline CFTypeID TypeIdOf(const Class& type) noexcept {
    return reinterpret_cast<CFTypeID>(&type);
}

/* Adds a reference. */
inline void Retain(const Object* object) noexcept {
    if (!IsImmediate(object) && object->references.load(std::memory_order_relaxed) >= 0)
        object->references.fetch_add(1, std::memory_order_relaxed);
}

/* Release in two steps, for callers that must not recurse. Returns true if that was the last
   reference; the caller must then call Destroy. */
inline bool DropReference(const Object* object) noexcept {
    return !IsImmediate(object) && object->references.load(std::memory_order_relaxed) >= 0 &&
           object->references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

/* Frees an object without references, after removing it from the table of shared values. */
void Destroy(const Object* object) noexcept;

/* The hash of the object: equal objects have equal ones, below 2^24. */
inline std::uint32_t Hash(const Object* object) noexcept {
    return !IsImmediate(object) && object->hasHash ? object->hashValue : ComputeHash(object);
}

/* A new T, followed by `trailingBytes` bytes for its data; the caller owns it. nullptr if memory is
   short. The memory comes from malloc(): the class of T frees it with std::free(). */
template<typename T, typename... Arguments>
T* Allocate(std::size_t trailingBytes, Arguments... arguments) noexcept {
    void* memory = std::malloc(sizeof(T) + trailingBytes);
    return memory != nullptr ? new (memory) T(arguments...) : nullptr;
}

/* The destroy function of classes whose objects own nothing. */
void DestroyPlain(Object* object) noexcept;

/* The object behind a public reference, which may be NULL, as T; nullptr if its class is not
   T::kClass. For numbers call NumberIn (Number.h). The public types are const also for mutable
   objects, hence the cast. */
template<typename T>
T* As(CFTypeRef reference) noexcept {
    auto* object = static_cast<Object*>(const_cast<void*>(reference));
    const bool isObject = object != nullptr && !IsImmediate(object);
    return isObject && object->type == &T::kClass ? static_cast<T*>(object) : nullptr;
}

/* A public reference as an object, unchecked. */
inline const Object* AsObject(CFTypeRef reference) noexcept {
    return static_cast<const Object*>(reference);
}

/* An owned reference, or none, which the destructor releases. T derives from Object. */
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

    // Takes over a reference that the caller owns; nullptr gives none.
    static Owned Adopt(T* object) noexcept {
        return Owned(object);
    }
    // Retains the object; nullptr gives none.
    static Owned Share(T* object) noexcept {
        if (object != nullptr)
            Retain(object);
        return Owned(object);
    }

    // The object, borrowed; nullptr if there is none.
    T* Get() const noexcept {
        return object_;
    }
    // Precondition: there is one.
    T* operator->() const noexcept {
        return object_;
    }
    // True if there is one.
    explicit operator bool() const noexcept {
        return object_ != nullptr;
    }
    // Passes the reference to the caller, who must release it.
    T* Detach() noexcept {
        return std::exchange(object_, nullptr);
    }

private:
    explicit Owned(T* object) noexcept : object_(object) {}
    T* object_ = nullptr;
};

} // namespace cf

#endif
