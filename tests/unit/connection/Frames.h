#ifndef TESTS_UNIT_CONNECTION_FRAMES_H
#define TESTS_UNIT_CONNECTION_FRAMES_H

/* Frames as bytes, built without the code under test. */

#include "support/PropertyLists.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

struct HeaderFields {
    std::uint32_t signature = 0x68536967;
    std::uint16_t reserved = 0;
    std::uint16_t headerSize = 12;
    std::uint32_t dataLength = 0;
};

inline std::string HeaderBytes(const HeaderFields& fields) {
    std::string bytes(12, '\0');
    std::memcpy(bytes.data(), &fields.signature, 4);
    std::memcpy(bytes.data() + 4, &fields.reserved, 2);
    std::memcpy(bytes.data() + 6, &fields.headerSize, 2);
    std::memcpy(bytes.data() + 8, &fields.dataLength, 4);
    return bytes;
}

inline std::string FrameOf(std::string_view payload) {
    return HeaderBytes({.dataLength = static_cast<std::uint32_t>(payload.size())}) +
           std::string(payload);
}

inline std::string FrameOfList(CFPropertyListRef list) {
    return FrameOf(XmlOf(list));
}

#endif
