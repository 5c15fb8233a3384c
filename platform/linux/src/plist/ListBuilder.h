#ifndef PLATFORM_LISTBUILDER_H
#define PLATFORM_LISTBUILDER_H

/*
 * The values of a property list that is being read. The readers work depth first, so the members
 * of all unfinished containers lie on one stack, the innermost container's on top: a container
 * remembers where its members begin, and ending it takes them off again.
 *
 * The list readers throw inside: std::bad_alloc when memory is short, MalformedList for a text that
 * is no list. The functions of CFPropertyList.h catch both.
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

/* Deeper nesting is refused, so that whoever walks a list that was read may recurse. */
inline constexpr int kMaximumNesting = 512;

/* Longer lists are neither read nor written. Reading XML takes up to 7 times its length, most of it
   for a list of dictionaries with a key of its own each. */
inline constexpr std::size_t kMaximumListSize = std::size_t{64} << 20;

/* The object that a creation gave. */
inline Value Created(const Object* object) {
    if (object == nullptr)
        throw std::bad_alloc();
    return Value::Adopt(object);
}

class ListBuilder {
public:
    // Immutable containers are shared values, mutable ones are new. Leaves are always shared.
    explicit ListBuilder(bool mutableContainers);
    ~ListBuilder();
    ListBuilder(const ListBuilder&) = delete;
    ListBuilder& operator=(const ListBuilder&) = delete;

    std::size_t BeginArray() const noexcept {
        return members_.size();
    }
    void AddMember(Value member);
    Value EndArray(std::size_t begin);

    void BeginDictionary();
    // A key that comes again replaces the earlier value. The key is a shared string, and borrowed
    // for as long as the list is read.
    void AddPair(const Object* key, Value value);
    Value EndDictionary();
    // The same when the dictionary is a member of the array around it.
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
    std::vector<const Object*> members_; // owned; null where a dictionary is pending
    Value lastArray_;                    // immutable, in one row
    std::vector<Pair> pairs_;            // keys borrowed, values owned
    std::vector<std::size_t> begins_;    // of the unfinished dictionaries, among the pairs

    // Of the last dictionary at each level. Deep ones, which are rare, share one.
    std::array<DictionaryShape, 8> shapes_;
};

} // namespace cf

#endif
