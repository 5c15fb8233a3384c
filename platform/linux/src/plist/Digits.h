#ifndef PLATFORM_DIGITS_H
#define PLATFORM_DIGITS_H

/* Digits, whatever the locale. */

namespace cf {

inline bool IsDecimalDigit(char character) {
    return character >= '0' && character <= '9';
}

/* The value of a hexadecimal digit, or -1. */
inline int DigitValue(char character) {
    if (IsDecimalDigit(character))
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

} // namespace cf

#endif
