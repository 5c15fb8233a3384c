#ifndef PLATFORM_XMLKEYTABLE_H
#define PLATFORM_XMLKEYTABLE_H

/* The distinct keys of an XML property list. The normal form refers to a key by its number. */

#include "plist/ListBuilder.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cf {

class XmlKeyTable {
public:
    // The number of the key, a shared string. Numbers are 0, 1, 2, ... in the order of first use.
    // Throws std::bad_alloc.
    std::size_t NumberOf(Value key);

    // The key with that number, borrowed from the table.
    const Object* KeyAt(std::size_t number) const {
        return keys_[number].Get();
    }

private:
    void Grow();

    std::vector<Value> keys_;
    std::vector<std::uint32_t> slots_; // open addressing: number + 1, or 0 for a free slot
};

/* The length of a reference to a key in the normal form: the number in seven bits per byte, lowest
   bits first, with the highest bit of each byte set. */
inline constexpr std::size_t kKeyReferenceLength = 4;

/* Writes a reference of kKeyReferenceLength bytes; returns the place behind it. */
inline char* WriteKeyReference(char* out, std::size_t number) {
    for (unsigned i = 0; i < kKeyReferenceLength; ++i)
        out[i] = static_cast<char>(0x80 | (number >> (7 * i) & 0x7F));
    return out + kKeyReferenceLength;
}

/* The number in a reference. */
inline std::size_t ReadKeyReference(const char* reference) {
    const auto digit = [reference](std::size_t i) {
        return static_cast<std::size_t>(reference[i] & 0x7F) << (7 * i);
    };
    return digit(0) | digit(1) | digit(2) | digit(3); // a loop would take twice the time
}

} // namespace cf

#endif
