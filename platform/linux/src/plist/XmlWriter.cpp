#include "plist/XmlWriter.h"

#include "objects/Array.h"
#include "objects/Data.h"
#include "objects/Date.h"
#include "objects/Dictionary.h"
#include "objects/Number.h"
#include "objects/String.h"
#include "plist/CalendarDate.h"
#include "plist/ListBuilder.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace cf {

namespace {

constexpr std::string_view kHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                     "<plist version=\"1.0\">\n";
constexpr std::string_view kTrailer = "</plist>\n";

// A function that returns bool returns false if the list cannot be written.
class XmlWriter {
public:
    bool WriteList(const Object* list);
    std::string TakeText() {
        return std::move(text_);
    }

private:
    bool WriteValue(const Object* value, int depth);
    bool WriteArray(const Array* array, int depth);
    bool WriteDictionary(const Dictionary* dictionary, int depth);
    void WriteString(std::string_view tag, const String* string, int depth);
    void WriteNumber(NumberValue number, int depth);
    bool WriteDate(const Date* date, int depth);
    void WriteData(const Data* data, int depth);

    void Indent(int depth) {
        text_.append(static_cast<std::size_t>(depth), '\t');
    }
    void OpenElement(std::string_view tag, int depth);
    void CloseElement(std::string_view tag);
    void WriteElement(std::string_view tag, std::string_view content, int depth);
    void WriteLine(std::string_view line, int depth);

    std::string text_;
};

// The run up to its first unpaired surrogate, which generalized UTF-8 encodes as ED A0..BF and one
// more byte.
std::string_view UpToUnpairedSurrogate(std::string_view run) {
    for (std::size_t i = run.find('\xED'); i < run.size(); i = run.find('\xED', i + 1))
        if (static_cast<unsigned char>(run[i + 1]) >= 0xA0)
            return run.substr(0, i);
    return run;
}

std::string_view EscapeOf(char character) {
    return character == '&' ? "&amp;" : character == '<' ? "&lt;" : "&gt;";
}

void AppendEscaped(std::string& text, const String* string) {
    std::string_view rest = TextOf(string);
    while (true) {
        const std::size_t length = std::min(rest.find_first_of("&<>"), rest.size());
        const std::string_view run = rest.substr(0, length);
        text += string->kind == kValidUtf8 ? run : UpToUnpairedSurrogate(run);
        if (length == rest.size())
            return;
        text += EscapeOf(rest[length]);
        rest.remove_prefix(length + 1);
    }
}

std::string RealText(double value) {
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return std::signbit(value) ? "-infinity" : "+infinity";
    if (value == 0)
        return "0.0";
    std::array<char, 32> text{};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), value,
                                      std::chars_format::general, 17);
    return {text.data(), result.ptr};
}

// Four digits for three bytes. Missing bytes become '='.
std::array<char, 4> Base64Group(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
        bits = bits << 8 | (i < bytes.size() ? bytes[i] : 0U);
    std::array<char, 4> group{};
    for (std::size_t i = 0; i < 4; ++i)
        group[i] = i <= bytes.size() ? kDigits[bits >> (18 - 6 * i) & 0x3F] : '=';
    return group;
}

// Lines of base64 have at most 8 tabs and, with 8 columns for a tab, at most 76 columns.
constexpr int kMaximumDataIndent = 8;

std::size_t Base64BytesPerLine(int indent) {
    return static_cast<std::size_t>(76 - 8 * indent) / 4 * 3;
}

using KeyAndValue = std::pair<const String*, const Object*>;

// The pairs in the order of their keys; nothing if a key is not a string.
std::optional<std::vector<KeyAndValue>> SortedPairs(const Dictionary* dictionary) {
    std::vector<KeyAndValue> pairs;
    pairs.reserve(dictionary->count);
    VisitPairs(dictionary, [&](const Object* key, const Object* value) {
        pairs.emplace_back(As<String>(key), value);
    });
    for (const auto& [key, value] : pairs)
        if (key == nullptr)
            return std::nullopt;
    std::sort(pairs.begin(), pairs.end(), [](const KeyAndValue& first, const KeyAndValue& second) {
        return CompareByUnits(first.first, second.first) < 0;
    });
    return pairs;
}

bool XmlWriter::WriteList(const Object* list) {
    text_ += kHeader;
    if (!WriteValue(list, 0))
        return false;
    text_ += kTrailer;
    return text_.size() <= kMaximumListSize;
}

bool XmlWriter::WriteValue(const Object* value, int depth) {
    if (text_.size() > kMaximumListSize)
        return false;
    if (const auto* string = As<String>(value))
        WriteString("string", string, depth);
    else if (const auto number = NumberIn(value))
        WriteNumber(*number, depth);
    else if (value == AsObject(kCFBooleanTrue) || value == AsObject(kCFBooleanFalse))
        WriteLine(value == AsObject(kCFBooleanTrue) ? "<true/>" : "<false/>", depth);
    else if (const auto* data = As<Data>(value))
        WriteData(data, depth);
    else if (const auto* date = As<Date>(value))
        return WriteDate(date, depth);
    else if (const auto* dictionary = As<Dictionary>(value))
        return WriteDictionary(dictionary, depth);
    else if (const auto* array = As<Array>(value))
        return WriteArray(array, depth);
    else
        return false;
    return true;
}

bool XmlWriter::WriteArray(const Array* array, int depth) {
    if (depth == kMaximumNesting)
        return false;
    if (array->count == 0) {
        WriteLine("<array/>", depth);
        return true;
    }
    WriteLine("<array>", depth);
    for (std::size_t i = 0; i < array->count; ++i)
        if (!WriteValue(MemberAt(array, i), depth + 1))
            return false;
    WriteLine("</array>", depth);
    return true;
}

bool XmlWriter::WriteDictionary(const Dictionary* dictionary, int depth) {
    if (depth == kMaximumNesting)
        return false;
    const auto pairs = SortedPairs(dictionary);
    if (!pairs)
        return false;
    if (pairs->empty()) {
        WriteLine("<dict/>", depth);
        return true;
    }
    WriteLine("<dict>", depth);
    for (const auto& [key, value] : *pairs) {
        WriteString("key", key, depth + 1);
        if (!WriteValue(value, depth + 1))
            return false;
    }
    WriteLine("</dict>", depth);
    return true;
}

void XmlWriter::WriteString(std::string_view tag, const String* string, int depth) {
    OpenElement(tag, depth);
    AppendEscaped(text_, string);
    CloseElement(tag);
}

void XmlWriter::WriteNumber(NumberValue number, int depth) {
    if (number.kind == kRealNumber)
        WriteElement("real", RealText(number.Real()), depth);
    else if (number.kind == kUnsignedNumber)
        WriteElement("integer", std::to_string(number.Unsigned()), depth);
    else
        WriteElement("integer", std::to_string(number.Signed()), depth);
}

bool XmlWriter::WriteDate(const Date* date, int depth) {
    if (!HasCalendarDate(date->absoluteTime))
        return false;
    WriteElement("date", FormatDate(date->absoluteTime), depth);
    return true;
}

void XmlWriter::WriteData(const Data* data, int depth) {
    WriteLine("<data>", depth);
    const int indent = std::min(depth, kMaximumDataIndent);
    const std::size_t bytesPerLine = Base64BytesPerLine(indent);
    for (auto rest = BytesOf(data); !rest.empty();) {
        auto line = rest.first(std::min(bytesPerLine, rest.size()));
        rest = rest.subspan(line.size());
        Indent(indent);
        for (; !line.empty(); line = line.subspan(std::min<std::size_t>(3, line.size())))
            text_.append(Base64Group(line).data(), 4);
        text_ += '\n';
    }
    WriteLine("</data>", depth);
}

void XmlWriter::OpenElement(std::string_view tag, int depth) {
    Indent(depth);
    text_ += '<';
    text_ += tag;
    text_ += '>';
}

void XmlWriter::CloseElement(std::string_view tag) {
    text_ += "</";
    text_ += tag;
    text_ += ">\n";
}

void XmlWriter::WriteElement(std::string_view tag, std::string_view content, int depth) {
    OpenElement(tag, depth);
    text_ += content;
    CloseElement(tag);
}

void XmlWriter::WriteLine(std::string_view line, int depth) {
    Indent(depth);
    text_ += line;
    text_ += '\n';
}

} // namespace

std::optional<std::string> WriteXmlList(const Object* list) {
    XmlWriter writer;
    if (!writer.WriteList(list))
        return std::nullopt;
    return writer.TakeText();
}

} // namespace cf
