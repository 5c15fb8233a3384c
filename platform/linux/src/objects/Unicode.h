#ifndef PLATFORM_UNICODE_H
#define PLATFORM_UNICODE_H

/*
 * Characters in bytes and in UTF-16 units. Generalized UTF-8 is UTF-8 in which an unpaired
 * surrogate is encoded as if it were a character: it can represent any UTF-16 text.
 */

#include <CoreFoundation/CFBase.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cf {

/* The encoded byte order mark. A leading one is no part of a text. */
inline constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";

/* True if the text is valid UTF-8, which excludes surrogates. */
bool IsValidUtf8(std::string_view text) noexcept;

/* The number of UTF-16 units of generalized UTF-8. */
std::size_t CountUnits(std::string_view text) noexcept;

/* Removes the first character of generalized UTF-8 and returns it. Precondition: the text is not
   empty and valid. */
char32_t TakeCharacter(std::string_view& text) noexcept;

/*
 * Returns the first character or unpaired surrogate of [next, end) and moves `next` behind it.
 * Precondition: the range is not empty.
 */
char32_t TakeCharacter(const UniChar*& next, const UniChar* end) noexcept;

/* The number of bytes that Encode() writes, 1 to 4. */
std::size_t EncodedSize(char32_t character) noexcept;

/* Writes the character as generalized UTF-8 to `place`, up to 4 bytes; returns the place behind it.
 */
char* Encode(char* place, char32_t character) noexcept;

/* True for D800 to DFFF. */
inline bool IsSurrogate(char32_t character) noexcept {
    return (character & ~U'\x7FF') == 0xD800;
}

/* The UTF-16 units of generalized UTF-8, one after the other. */
class UnitReader {
public:
    // Reads valid generalized UTF-8, which must live as long as the reader.
    explicit UnitReader(std::string_view text) noexcept : rest_(text) {}

    // True if no unit is left.
    bool AtEnd() const noexcept {
        return rest_.empty() && trail_ == 0;
    }
    // The next unit. Precondition: one is left.
    UniChar Next() noexcept;

private:
    std::string_view rest_;
    UniChar trail_ = 0; // the second half of a pair, not yet returned; else 0
};

} // namespace cf

#endif
