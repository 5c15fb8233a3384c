/*
 * Binary property lists: untrusted input from the server socket or a disc. An input is a list, or a
 * description from which this target makes the offset table and the trailer:
 *
 *     size of offsets, size of references, then for each object its length and its bytes
 */

#include "AddedValues.h"
#include "ListChecks.h"
#include "Target.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::string BigEndian(std::uint64_t value, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = size; i > 0 && value != 0; --i, value >>= 8)
        bytes[i - 1] = static_cast<char>(value & 0xFF);
    return bytes;
}

std::size_t TakeByte(std::string_view& input) {
    if (input.empty())
        return 0;
    const auto byte = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    return byte;
}

std::string Assembled(std::string_view input) {
    const std::size_t offsetSize = 1 + TakeByte(input) % 8;
    const std::size_t referenceSize = 1 + TakeByte(input) % 8;
    std::string bytes = "bplist00";
    std::string table;
    std::uint64_t objectCount = 0;
    for (; !input.empty(); ++objectCount) {
        const std::size_t length = TakeByte(input);
        const std::string_view object = input.substr(0, length);
        table += BigEndian(bytes.size(), offsetSize);
        bytes += object;
        input.remove_prefix(object.size());
    }
    return bytes + table + std::string(6, '\0') + BigEndian(offsetSize, 1) +
           BigEndian(referenceSize, 1) + BigEndian(objectCount, 8) + BigEndian(0, 8) +
           BigEndian(bytes.size(), 8);
}

// True if the list has characters from U+0080 to U+00FF. They may come from an ASCII string, whose
// bytes libplist decodes as UTF-8.
bool HasLatin1(CFPropertyListRef list) {
    return XmlOf(list).find_first_of("\xC2\xC3") != std::string::npos;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = TextOfInput(data, size);
    const std::string bytes = input.starts_with("bplist00") ? std::string(input) : Assembled(input);
    ResetAddedValues();
    const ReadResult list = ReadList(bytes);
    EXPECT_LE(CountAddedValues(), bytes.size()); // each reference has a byte of its own
    ExpectSameWithMutableContainers(bytes, list);
    if (!list.list || !IsXmlCompatible(list.list.Get()))
        return 0;
    ExpectSameWhenReadAgain(list.list.Get());
    if (!HasLatin1(list.list.Get()))
        ExpectReferenceAgrees(list.list.Get(), LibplistFromBinary(bytes), EqualKeys::FirstCounts);
    return 0;
}
