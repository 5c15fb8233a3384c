#ifndef PLATFORM_LISTBUILDER_H
#define PLATFORM_LISTBUILDER_H

/*
 * Builds the values of a property list for both readers. They read depth first, so one stack
 * contains the members of all unfinished containers, those of the innermost one on top. A container
 * stores where its members begin; ending it removes them.
 *
 * All functions that can fail throw std::bad_alloc if memory is short; the readers also throw
 * MalformedList. The functions of CFPropertyList.h catch both.
 */

#include "objects/SharedValues.h"
#include "plist/DictionaryShape.h"

#include <array>
#include <cstddef>
#include <new>
#include <span>
#include <vector>

namespace cf {

using Value = Owned<const Object>;

/* The maximum nesting of containers. It makes recursion over a list safe. */
inline constexpr int kMaximumNesting = 512;

/* The maximum length of a list in bytes, read or written. Reading XML needs memory for up to 7
   times its length; the worst case is a list of dictionaries whose keys are all distinct. */
inline constexpr std::size_t kMaximumListSize = std::size_t{64} << 20;

/* Adopts the result of a creating function; throws std::bad_alloc for nullptr. */
inline Value Created(const Object* object) {
    if (object == nullptr)
        throw std::bad_alloc();
    return Value::Adopt(object);
}

class ListBuilder {
public:
    // Immutable containers are shared values, mutable ones are new objects. Leaves are always
    // shared.
    explicit ListBuilder(bool mutableContainers);
    ~ListBuilder();
    ListBuilder(const ListBuilder&) = delete;
    ListBuilder& operator=(const ListBuilder&) = delete;

    // Begins an array. Pass the result to EndArray().
    std::size_t BeginArray() const noexcept {
        return members_.size();
    }
    // Adds a member to the innermost array.
    void AddMember(Value member);
    // The array of the members added since BeginArray().
    Value EndArray(std::size_t begin);

    // Begins a dictionary.
    void BeginDictionary();
    // Adds a pair to the innermost dictionary. Of equal keys, the last one is used. The key must be
    // a shared string and live as long as the builder.
    void AddPair(const Object* key, Value value);
    // The dictionary of the pairs added since BeginDictionary().
    Value EndDictionary();
    // Ends a dictionary and adds it to the array around it. Faster than EndDictionary().
    void AddDictionary();

private:
    void DropMembers(std::size_t begin) noexcept;
    void DropPairs(std::size_t begin) noexcept;
    void KeepLastOfEachKey(std::size_t begin);
    Value ShareArray(std::span<const Object* const> members);
    Value ShareDictionary(std::size_t begin);
    void SharePending(DictionaryShape& shape);
    DictionaryShape& ShapeAt(std::size_t level) noexcept;

    const bool mutable_;
    std::vector<const Object*> members_; // owned; null for a pending dictionary
    Value lastArray_;                    // immutable, not of pieces
    std::vector<Pair> pairs_;            // keys borrowed, values owned
    std::vector<std::size_t> begins_;    // indexes in pairs_ of the unfinished dictionaries

    // Of the last dictionary at each level. Deep levels, which are rare, share the last shape.
    std::array<DictionaryShape, 8> shapes_;
};

} // namespace cf

#endif
