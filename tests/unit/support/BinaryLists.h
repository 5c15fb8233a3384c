#ifndef TESTS_UNIT_SUPPORT_BINARYLISTS_H
#define TESTS_UNIT_SUPPORT_BINARYLISTS_H

/* Dictionaries in the binary format, of at most 14 pairs and 255 bytes:
 *
 *     BinaryDictionary({{"Changer GUID", BinaryInteger(7)}, {"Writable", BinaryFlag(true)}})
 */

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

inline std::string BigEndianBytes(std::uint64_t value) {
    std::string bytes(sizeof value, '\0');
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes[i] = static_cast<char>(value >> (8 * (sizeof value - 1 - i)) & 0xFF);
    return bytes;
}

/* The bits of the value; the format reads them as a signed number. */
inline std::string BinaryInteger(std::uint64_t value) {
    return "\x13" + BigEndianBytes(value);
}

inline std::string BinaryFlag(bool value) {
    return value ? "\x09" : "\x08";
}

inline std::string BinaryText(const std::string& ascii) {
    return std::string("\x5F\x10") + static_cast<char>(ascii.size()) + ascii;
}

/* The values are results of the functions above. */
inline std::string BinaryDictionary(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::vector<std::string> objects = {std::string(1, static_cast<char>(0xD0 | pairs.size()))};
    for (const auto& [key, value] : pairs)
        objects.push_back(BinaryText(key));
    for (const auto& [key, value] : pairs)
        objects.push_back(value);
    for (std::size_t reference = 1; reference < objects.size(); ++reference)
        objects[0] += static_cast<char>(reference);

    std::string bytes = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(bytes.size());
        bytes += object;
    }
    const std::string sizes("\0\0\0\0\0\0\1\1", 8); // bytes per offset and per reference: 1
    return bytes + offsets + sizes + BigEndianBytes(objects.size()) + BigEndianBytes(0) +
           BigEndianBytes(bytes.size());
}

#endif
