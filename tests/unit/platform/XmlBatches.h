#ifndef TESTS_XMLBATCHES_H
#define TESTS_XMLBATCHES_H

/* Reads XML property lists in batches of the normal form of any length. */

#include "Lists.h"
#include "plist/ListBuilder.h"
#include "plist/Parsing.h"
#include "plist/XmlReader.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

inline ReadResult ReadInBatches(std::string_view bytes, std::size_t batchLength) {
    ReadResult result;
    cf::ListBuilder builder(false);
    try {
        cf::Value list =
            cf::ReadXmlList({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()},
                            builder, batchLength);
        result.list = CFOwned<CFPropertyListRef>(list.Detach());
    } catch (const cf::MalformedList& malformed) {
        result.error = malformed.what();
    }
    return result;
}

/* Fails the test if reading in batches gives another list or error. Equal immutable lists are one
   object. */
inline void ExpectSameInBatches(std::string_view bytes, std::size_t batchLength,
                                const ReadResult& expected) {
    const ReadResult result = ReadInBatches(bytes, batchLength);
    EXPECT_EQ(result.error, expected.error) << batchLength;
    EXPECT_EQ(result.list.Get(), expected.list.Get()) << batchLength;
}

#endif
