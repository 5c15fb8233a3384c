#ifndef PLATFORM_XMLKEYTABLE_H
#define PLATFORM_XMLKEYTABLE_H

/* The distinct keys of an XML property list. Each gets a number, by which the normal form refers to
   it. */

#include "plist/ListBuilder.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cf {

class XmlKeyTable {
public:
    // The number of that key, a shared string: 0, 1, 2, ... in the order of first use. Throws
    // std::bad_alloc.
    std::size_t NumberOf(Value key);

    // The key is borrowed from the table.
    const Object* KeyAt(std::size_t number) const {
        return keys_[number].Get();
    }

private:
    void Grow();

    std::vector<Value> keys_;
    std::vector<std::uint32_t> slots_; // open addressing: number + 1, or 0 for a free slot
};

/* How the normal form refers to a key: its number in seven bits a byte, the lowest ones first. No
   byte of it is ASCII. */
inline constexpr std::size_t kKeyReferenceLength = 4;

inline char* WriteKeyReference(char* out, std::size_t number) {
    for (unsigned i = 0; i < kKeyReferenceLength; ++i)
        out[i] = static_cast<char>(0x80 | (number >> (7 * i) & 0x7F));
    return out + kKeyReferenceLength;
}

inline std::size_t ReadKeyReference(const char* reference) {
    const auto digit = [reference](std::size_t i) {
        return static_cast<std::size_t>(reference[i] & 0x7F) << (7 * i);
    };
    return digit(0) | digit(1) | digit(2) | digit(3); // a loop would take twice the time
}

} // namespace cf

#endif
