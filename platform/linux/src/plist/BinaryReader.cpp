#include "plist/BinaryReader.h"

#include "objects/String.h"
#include "plist/CalendarDate.h"
#include "plist/Parsing.h"
#include "plist/Transcoding.h"

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFNumber.h>

#include <algorithm>
#include <bit>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cf {

namespace {

constexpr std::string_view kSignature = "bplist00";
constexpr std::size_t kTrailerSize = 32;

using Bytes = std::span<const std::uint8_t>;

// Core Foundation reads a malformed binary list as XML and fails at its first byte; this is its
// text.
[[noreturn]] void Refuse() {
    throw MalformedList("Unexpected character b at line 1");
}

// The value of the bytes, or its lowest 64 bits.
std::uint64_t BigEndian(Bytes bytes) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

std::string_view TextOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The parts of the file, checked so that each offset in the table can be read.
struct Layout {
    Bytes objects; // including the signature, where offsets begin
    Bytes offsets;
    std::size_t offsetSize;
    std::size_t referenceSize;
    std::size_t objectCount;
    std::uint64_t topObject;
};

Layout ReadLayout(Bytes bytes) {
    if (bytes.size() < kSignature.size() + kTrailerSize)
        Refuse();
    const Bytes body = bytes.first(bytes.size() - kTrailerSize);
    const Bytes trailer = bytes.last(kTrailerSize);
    const std::size_t offsetSize = trailer[6];
    const std::size_t referenceSize = trailer[7];
    const std::uint64_t objectCount = BigEndian(trailer.subspan(8, 8));
    const std::uint64_t table = BigEndian(trailer.subspan(24, 8));
    if (offsetSize < 1 || offsetSize > 8 || referenceSize < 1 || referenceSize > 8)
        Refuse();
    if (table < kSignature.size() || table > body.size())
        Refuse();
    // Offsets too small for the file would allow for a table of more objects than the file can
    // have.
    if (offsetSize < 8 && table >> (8 * offsetSize) != 0)
        Refuse();
    // The table ends where the trailer begins.
    const std::size_t tableSize = body.size() - table;
    if (tableSize % offsetSize != 0 || objectCount != tableSize / offsetSize)
        Refuse();
    const auto count = static_cast<std::size_t>(objectCount);
    return {body.first(table),
            body.subspan(table, count * offsetSize),
            offsetSize,
            referenceSize,
            count,
            BigEndian(trailer.subspan(16, 8))};
}

// The height of an object: the levels of containers in it, including itself. An object may be
// shared by containers at several depths, so the depth of its first conversion does not limit
// nesting.
constexpr int kNotConverted = -1;

struct Converted {
    Value value;
    int height = kNotConverted;
};

class BinaryReader {
public:
    BinaryReader(Bytes bytes, ListBuilder& builder)
        : layout_(ReadLayout(bytes)), builder_(builder),
          unclaimed_(layout_.objects.size() - kSignature.size()), objects_(layout_.objectCount) {}

    Value Read() {
        Convert(layout_.topObject, 0);
        return std::move(objects_[layout_.topObject].value);
    }

private:
    const Converted& Convert(std::uint64_t number, int depth);
    Converted ReadObject(std::size_t offset, int depth);
    Converted ReadArray(std::size_t count, Bytes references, int depth);
    Converted ReadSet(std::size_t count, Bytes references, int depth);
    Converted ReadDictionary(std::size_t count, Bytes references, int depth);

    std::size_t TakeCount(std::size_t& position, unsigned low);
    Bytes Take(std::size_t& position, std::size_t count, std::size_t size);
    std::uint64_t Reference(Bytes references, std::size_t index) const;

    const Layout layout_;
    ListBuilder& builder_;
    std::size_t unclaimed_; // bytes that no object has taken yet
    std::vector<Converted> objects_;
};

const Converted& BinaryReader::Convert(std::uint64_t number, int depth) {
    if (number >= objects_.size())
        Refuse();
    Converted& object = objects_[number];
    if (depth > kMaximumNesting) // also if the object contains itself
        Refuse();
    if (object.height == kNotConverted) {
        const std::uint64_t offset =
            BigEndian(layout_.offsets.subspan(number * layout_.offsetSize, layout_.offsetSize));
        object = ReadObject(offset, depth);
        if (object.height > kMaximumNesting)
            Refuse();
    }
    return object;
}

// Integers of 1, 2 and 4 bytes are unsigned, those of 8 and 16 signed. Of 16 bytes, the lower half
// is the value, and it is unsigned if the upper half is 0.
Value IntegerFrom(Bytes bytes) {
    const std::uint64_t low = BigEndian(bytes);
    const auto value = static_cast<std::int64_t>(low);
    if (value < 0 && BigEndian(bytes.first(8)) == 0)
        return Created(SharedUnsignedInteger(low));
    return Created(SharedInteger(value));
}

double RealFrom(Bytes bytes) {
    const std::uint64_t bits = BigEndian(bytes);
    return bytes.size() == 4 ? std::bit_cast<float>(static_cast<std::uint32_t>(bits))
                             : std::bit_cast<double>(bits);
}

Value DateFrom(Bytes bytes) {
    const double time = RealFrom(bytes);
    if (!HasCalendarDate(time))
        Refuse();
    return Created(SharedDate(time));
}

// ASCII; other bytes are read as Latin-1.
Value AsciiFrom(Bytes bytes) {
    const std::string_view text = TextOf(bytes);
    const auto isHigh = [](std::uint8_t byte) { return byte >= 0x80; };
    if (std::none_of(bytes.begin(), bytes.end(), isHigh))
        return Created(SharedString(text));
    return Created(SharedString(NarrowToUtf8(text, kLatin1)));
}

Value Utf16From(Bytes bytes) {
    const std::optional<std::string> text = Utf16ToUtf8(TextOf(bytes), ByteOrder::Big);
    if (!text)
        Refuse();
    return Created(SharedString(*text));
}

// The value for objects that occur in archives only: null, identifiers, sets.
Value Unusable() {
    return Value::Share(AsObject(kCFNull));
}

Value SimpleFrom(unsigned low) {
    switch (low) {
    case 0x0:
        return Unusable();
    case 0x8:
        return Value::Share(AsObject(kCFBooleanFalse));
    case 0x9:
        return Value::Share(AsObject(kCFBooleanTrue));
    default:
        Refuse();
    }
}

// The upper half of an object's first byte is its type, the lower half its size.
Converted BinaryReader::ReadObject(std::size_t offset, int depth) {
    std::size_t position = offset;
    const unsigned marker = Take(position, 1, 1)[0];
    const unsigned low = marker & 0xF;
    switch (marker >> 4) {
    case 0x0:
        return {SimpleFrom(low), 0};
    case 0x1:
        if (low > 4)
            Refuse();
        return {IntegerFrom(Take(position, std::size_t{1} << low, 1)), 0};
    case 0x2:
        if (low != 2 && low != 3)
            Refuse();
        return {Created(SharedReal(RealFrom(Take(position, std::size_t{1} << low, 1)))), 0};
    case 0x3:
        if (low != 3)
            Refuse();
        return {DateFrom(Take(position, 8, 1)), 0};
    case 0x8:
        Take(position, low + 1, 1);
        return {Unusable(), 0};
    default: // the others have a count
        break;
    }
    const std::size_t count = TakeCount(position, low);
    switch (marker >> 4) {
    case 0x4:
        return {Created(SharedData(Take(position, count, 1))), 0};
    case 0x5:
        return {AsciiFrom(Take(position, count, 1)), 0};
    case 0x6:
        return {Utf16From(Take(position, count, 2)), 0};
    case 0xA:
        return ReadArray(count, Take(position, count, layout_.referenceSize), depth);
    case 0xB: // ordered set
    case 0xC:
        return ReadSet(count, Take(position, count, layout_.referenceSize), depth);
    case 0xD:
        return ReadDictionary(count, Take(position, count, 2 * layout_.referenceSize), depth);
    default:
        Refuse();
    }
}

Converted BinaryReader::ReadArray(std::size_t count, Bytes references, int depth) {
    const std::size_t begin = builder_.BeginArray();
    int height = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Converted& member = Convert(Reference(references, i), depth + 1);
        height = std::max(height, member.height);
        builder_.AddMember(Value::Share(member.value.Get()));
    }
    return {builder_.EndArray(begin), height + 1};
}

// The members must be well-formed, but are dropped.
Converted BinaryReader::ReadSet(std::size_t count, Bytes references, int depth) {
    int height = 0;
    for (std::size_t i = 0; i < count; ++i)
        height = std::max(height, Convert(Reference(references, i), depth + 1).height);
    return {Unusable(), height + 1};
}

// The references to the keys precede those to the values. Of equal keys the first one is used, but
// the builder uses the last one, so the pairs are added in reverse. A key that is not a string is
// ignored with its value.
Converted BinaryReader::ReadDictionary(std::size_t count, Bytes references, int depth) {
    builder_.BeginDictionary();
    int height = 0;
    for (std::size_t i = count; i-- > 0;) {
        const Converted& key = Convert(Reference(references, i), depth + 1);
        const Converted& value = Convert(Reference(references, count + i), depth + 1);
        height = std::max({height, key.height, value.height});
        if (As<String>(key.value.Get()) == nullptr)
            continue;
        builder_.AddPair(key.value.Get(), Value::Share(value.value.Get()));
    }
    return {builder_.EndDictionary(), height + 1};
}

// A count that does not fit into the marker is an integer object behind it.
std::size_t BinaryReader::TakeCount(std::size_t& position, unsigned low) {
    if (low != 0xF)
        return low;
    const unsigned marker = Take(position, 1, 1)[0];
    if (marker < 0x10 || marker > 0x13)
        Refuse();
    return BigEndian(Take(position, std::size_t{1} << (marker & 0xF), 1));
}

// Takes `count` items of `size` bytes and moves the position behind them. Refuses lists of which
// more bytes are taken than exist, which limits the work for overlapping objects.
Bytes BinaryReader::Take(std::size_t& position, std::size_t count, std::size_t size) {
    if (position < kSignature.size() || position > layout_.objects.size())
        Refuse();
    const Bytes rest = layout_.objects.subspan(position);
    if (count > rest.size() / size || count * size > unclaimed_)
        Refuse();
    unclaimed_ -= count * size;
    position += count * size;
    return rest.first(count * size);
}

std::uint64_t BinaryReader::Reference(Bytes references, std::size_t index) const {
    return BigEndian(references.subspan(index * layout_.referenceSize, layout_.referenceSize));
}

} // namespace

bool IsBinaryList(Bytes bytes) noexcept {
    return TextOf(bytes).starts_with(kSignature);
}

Value ReadBinaryList(Bytes bytes, ListBuilder& builder) {
    return BinaryReader(bytes, builder).Read();
}

} // namespace cf
