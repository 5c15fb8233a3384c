#ifndef TESTS_UNIT_CONNECTION_FRAMES_H
#define TESTS_UNIT_CONNECTION_FRAMES_H

/* Frames as bytes, built without the code under test. */

#include "support/PropertyLists.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

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

/* Input that is discarded, and the message of its error. */
struct LostFrame {
    std::string bytes;
    const char* failing; // the function that fails (see Seams.h); empty: none
    std::string message;
};

/* Every way to lose a frame. `frame` is a valid one, `kind` names it in the message of an invalid
   header. */
inline std::vector<LostFrame> LostFrames(const std::string& frame, const std::string& kind) {
    return {
        {"rubbish", "", "invalid " + kind + " header on data received"},
        {frame + "x", "", "inconsitent data length"},
        {FrameOf(""), "",
         "fail make property list from XML data (Cannot parse a NULL or zero-length data)"},
        {frame, "CFPropertyListCreateFromXMLData", "fail make property list from XML data (NULL)"},
        {frame, "CFDataCreateMutable", "fail alloc pending socket data"},
    };
}

#endif
