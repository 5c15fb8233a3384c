#ifndef PLATFORM_UNICODE_H
#define PLATFORM_UNICODE_H

/*
 * Characters in bytes and in UTF-16 units. Generalized UTF-8 is UTF-8 in which an unpaired
 * surrogate is encoded as if it were a character, so that any UTF-16 text survives.
 */

#include <CoreFoundation/CFBase.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace cf {

/* The encoded byte order mark. A leading one is no part of a text. */
inline constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";

bool IsValidUtf8(std::string_view text) noexcept;

/* Of generalized UTF-8. */
std::size_t CountUnits(std::string_view text) noexcept;

/* The first character of generalized UTF-8 that is not empty; cuts it off. */
char32_t TakeCharacter(std::string_view& text) noexcept;

/*
 * The first character of UTF-16 that is not empty, or its unpaired surrogate; moves next behind it.
 */
char32_t TakeCharacter(const UniChar*& next, const UniChar* end) noexcept;

std::size_t EncodedSize(char32_t character) noexcept;

/* Appends the character as generalized UTF-8 and returns the place behind it. */
char* Encode(char* place, char32_t character) noexcept;

inline bool IsSurrogate(char32_t character) noexcept {
    return (character & ~U'\x7FF') == 0xD800;
}

/* The UTF-16 units of generalized UTF-8, one after the other. */
class UnitReader {
public:
    explicit UnitReader(std::string_view text) noexcept : rest_(text) {}

    bool AtEnd() const noexcept {
        return rest_.empty() && trail_ == 0;
    }
    UniChar Next() noexcept;

private:
    std::string_view rest_;
    UniChar trail_ = 0; // the second half of a pair whose first half was given
};

} // namespace cf

#endif
