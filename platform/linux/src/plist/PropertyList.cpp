#include "files/ReadStream.h"
#include "objects/Data.h"
#include "objects/String.h"
#include "plist/BinaryReader.h"
#include "plist/ListBuilder.h"
#include "plist/Parsing.h"
#include "plist/XmlReader.h"
#include "plist/XmlWriter.h"

#include <CoreFoundation/CFPropertyList.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>

namespace {

using cf::MalformedList;
using cf::Value;

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kMinimumFileSize = 6;

Value ReadList(Bytes bytes, CFOptionFlags mutability) {
    if (bytes.size() > cf::kMaximumListSize)
        throw MalformedList("The property list is too long");
    cf::ListBuilder builder(mutability != kCFPropertyListImmutable);
    return cf::IsBinaryList(bytes) ? cf::ReadBinaryList(bytes, builder)
                                   : cf::ReadXmlList(bytes, builder);
}

Bytes ReadFile(cf::ReadStream* stream, CFIndex length) {
    const std::size_t wanted = length > 0 ? static_cast<std::size_t>(length) : SIZE_MAX;
    const auto bytes = cf::ReadBytes(stream, wanted);
    if (!bytes)
        throw MalformedList("Property list reading could not be completed because the stream had "
                            "an unknown error. Did you forget to open the stream?");
    if (bytes->size() < kMinimumFileSize)
        throw MalformedList("stream had too few bytes");
    if (bytes->size() > cf::kMaximumFileSize)
        throw MalformedList("stream had too many bytes");
    return *bytes;
}

// Returns the list of read(), which the caller owns. If read() throws, returns NULL and sets the
// text.
template<typename Read>
CFPropertyListRef CreateList(CFStringRef* errorString, Read read) noexcept {
    if (errorString != nullptr)
        *errorString = nullptr;
    try {
        return read().Detach();
    } catch (const MalformedList& malformed) {
        if (errorString != nullptr)
            *errorString = cf::CreateString(malformed.what());
    } catch (const std::bad_alloc&) {
    }
    return nullptr;
}

} // namespace

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef, CFPropertyListRef propertyList) {
    if (propertyList == nullptr)
        return nullptr;
    try {
        const auto text = cf::WriteXmlList(cf::AsObject(propertyList));
        if (!text)
            return nullptr;
        return cf::CreateData({reinterpret_cast<const std::uint8_t*>(text->data()), text->size()});
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef, CFDataRef data,
                                                  CFOptionFlags mutability,
                                                  CFStringRef* errorString) {
    return CreateList(errorString, [&] {
        const auto* bytes = cf::As<cf::Data>(data);
        if (bytes == nullptr || bytes->length == 0)
            throw MalformedList("Cannot parse a NULL or zero-length data");
        return ReadList(cf::BytesOf(bytes), mutability);
    });
}

CFPropertyListRef CFPropertyListCreateFromStream(CFAllocatorRef, CFReadStreamRef stream,
                                                 CFIndex streamLength, CFOptionFlags mutability,
                                                 CFPropertyListFormat* format,
                                                 CFStringRef* errorString) {
    return CreateList(errorString, [&] {
        const auto bytes = ReadFile(cf::As<cf::ReadStream>(stream), streamLength);
        Value list = ReadList(bytes, mutability);
        if (format != nullptr)
            *format = cf::IsBinaryList(bytes) ? kCFPropertyListBinaryFormat_v1_0
                                              : kCFPropertyListXMLFormat_v1_0;
        return list;
    });
}
