#include "objects/Object.h"

#include "objects/Hash.h"
#include "objects/Number.h"
#include "objects/SharedTable.h"

namespace cf {
namespace {

const Class* ClassOf(const Object* object) noexcept {
    return IsImmediate(object) ? &Number::kClass : object->type;
}

} // namespace

void Release(const Object* object) noexcept {
    if (DropReference(object))
        Destroy(object);
}

void Destroy(const Object* object) noexcept {
    if (object->isShared)
        RemoveSharedValue(object);
    object->type->destroy(const_cast<Object*>(object));
}

void DestroyPlain(Object* object) noexcept {
    std::free(object);
}

bool Equal(const Object* first, const Object* second) noexcept {
    if (first == second)
        return true;
    const Class* const type = ClassOf(first);
    return type == ClassOf(second) && type->equal != nullptr && type->equal(first, second);
}

std::uint32_t ComputeHash(const Object* object) noexcept {
    const Class* const type = ClassOf(object);
    if (type->hash != nullptr)
        return type->hash(object);
    return HashWord(reinterpret_cast<std::uintptr_t>(object));
}

} // namespace cf

struct __CFNull : cf::Object {
    static const cf::Class kClass;

    constexpr __CFNull() : Object(&kClass, cf::kStaticReferences) {}
};

constinit const cf::Class __CFNull::kClass = {cf::DestroyPlain, nullptr, nullptr};

namespace {
constinit __CFNull g_null;
}

constinit const CFNullRef kCFNull = &g_null;

CFTypeRef CFRetain(CFTypeRef object) {
    if (object != nullptr)
        cf::Retain(cf::AsObject(object));
    return object;
}

void CFRelease(CFTypeRef object) {
    if (object != nullptr)
        cf::Release(cf::AsObject(object));
}

Boolean CFEqual(CFTypeRef first, CFTypeRef second) {
    if (first == nullptr || second == nullptr)
        return first == second;
    return cf::Equal(cf::AsObject(first), cf::AsObject(second));
}

CFTypeID CFGetTypeID(CFTypeRef object) {
    return object != nullptr ? cf::TypeIdOf(*cf::ClassOf(cf::AsObject(object))) : 0;
}
