#include "objects/Collection.h"

#include "objects/Array.h"
#include "objects/Dictionary.h"
#include "objects/SharedTable.h"

#include <cstdlib>
#include <utility>

namespace cf {
namespace {

bool IsCollection(const Object* object) noexcept {
    return object->type == &Array::kClass || object->type == &Dictionary::kClass;
}

std::uint32_t SlotsInUse(const Collection* collection) noexcept {
    switch (collection->kind) {
    case kArrayOfPieces:
        return PieceCount(static_cast<const Array*>(collection));
    case kSharedDictionary:
        return collection->count + 1;
    case kMutableDictionary:
        return collection->capacity * 2;
    default:
        return collection->count;
    }
}

// During teardown, the count is the number of slots still to be emptied.
Collection* BeginTeardown(const Object* object) noexcept {
    auto* collection = static_cast<Collection*>(const_cast<Object*>(object));
    collection->count = SlotsInUse(collection);
    return collection;
}

void FreeEmptied(Collection* collection) noexcept {
    if (IsMutable(collection))
        std::free(collection->slots);
    std::free(collection);
}

} // namespace

// Depth first, without recursion. While a member collection is torn down, its slot stores the link
// back to the next outer collection: the one around the collection that contains the slot.
void DestroyCollection(Object* object) noexcept {
    Collection* around = nullptr;
    Collection* current = BeginTeardown(object);
    while (current != nullptr) {
        if (current->count == 0) {
            FreeEmptied(std::exchange(current, around));
            if (current != nullptr) {
                const Object* wayBack = current->slots[current->count];
                around = static_cast<Collection*>(const_cast<Object*>(wayBack));
            }
            continue;
        }
        const Object*& slot = current->slots[--current->count];
        const Object* member = slot;
        if (member == nullptr || !DropReference(member))
            continue;
        if (!IsCollection(member)) {
            Destroy(member);
            continue;
        }
        if (member->isShared)
            RemoveSharedValue(member);
        slot = around;
        around = std::exchange(current, BeginTeardown(member));
    }
}

} // namespace cf
