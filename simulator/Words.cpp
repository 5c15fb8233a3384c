#include "simulator/Words.h"

#include <cctype>
#include <cstdio>
#include <utility>

namespace simulator {

namespace {

bool IsBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

int ParseHexDigit(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const int lower = std::tolower(static_cast<unsigned char>(digit));
    if (lower >= 'a' && lower <= 'f')
        return lower - 'a' + 10;
    throw CommandError("not a hexadecimal digit");
}

char ParseHexByte(char high, char low) {
    return static_cast<char>(ParseHexDigit(high) * 16 + ParseHexDigit(low));
}

// Reads a line from left to right.
class Scanner {
public:
    explicit Scanner(std::string_view rest) : rest_(rest) {}

    bool SkipBlanks() {
        while (!rest_.empty() && IsBlank(rest_.front()))
            rest_.remove_prefix(1);
        return !rest_.empty();
    }

    std::string TakeWord() {
        std::size_t length = 0;
        while (length < rest_.size() && !IsBlank(rest_[length]) && rest_[length] != '=')
            ++length;
        return TakeText(length);
    }

    std::string TakeValue() {
        if (rest_.empty() || rest_.front() != '=')
            throw CommandError("argument without a value: give key=value");
        rest_.remove_prefix(1);
        if (rest_.starts_with('"'))
            return TakeQuoted();
        std::size_t length = 0;
        while (length < rest_.size() && !IsBlank(rest_[length]))
            ++length;
        return TakeText(length);
    }

private:
    std::string TakeText(std::size_t length) {
        std::string text(rest_.substr(0, length));
        rest_.remove_prefix(length);
        return text;
    }

    char TakeCharacter() {
        if (rest_.empty())
            throw CommandError("unterminated quoted value");
        const char character = rest_.front();
        rest_.remove_prefix(1);
        return character;
    }

    std::string TakeQuoted() {
        std::string text;
        TakeCharacter();
        for (char character = TakeCharacter(); character != '"'; character = TakeCharacter())
            text += character == '\\' ? TakeEscaped() : character;
        return text;
    }

    char TakeEscaped() {
        switch (const char character = TakeCharacter()) {
        case 'n':
            return '\n';
        case 't':
            return '\t';
        case 'x': {
            const char high = TakeCharacter();
            return ParseHexByte(high, TakeCharacter());
        }
        default:
            return character;
        }
    }

    std::string_view rest_;
};

bool NeedsQuotes(std::string_view text) {
    for (const char character : text)
        if (character <= ' ' || character == '"' || character == '\\' || character == 0x7F)
            return true; // also true for non-ASCII bytes where char is signed
    return text.empty();
}

} // namespace

CommandLine ParseCommandLine(std::string_view line) {
    CommandLine result;
    Scanner scanner(line);
    if (!scanner.SkipBlanks() || line.substr(line.find_first_not_of(" \t")).front() == '#')
        return result;
    result.word = scanner.TakeWord();
    while (scanner.SkipBlanks()) {
        std::string key = scanner.TakeWord();
        std::string value = scanner.TakeValue();
        if (!result.values.emplace(key, std::move(value)).second)
            throw CommandError("duplicate argument: " + key);
    }
    return result;
}

std::string QuoteValue(std::string_view text) {
    return NeedsQuotes(text) ? Quote(text) : std::string(text);
}

std::string Quote(std::string_view text) {
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            quoted += {'\\', character};
        } else if (character == '\n') {
            quoted += "\\n";
        } else if (character == '\t') {
            quoted += "\\t";
        } else if (static_cast<unsigned char>(character) < ' ' || character == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(character));
            quoted += escape;
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

std::string ParseHexBytes(std::string_view digits) {
    if (digits.size() % 2 != 0)
        throw CommandError("odd number of hexadecimal digits");
    std::string bytes;
    for (std::size_t index = 0; index < digits.size(); index += 2)
        bytes += ParseHexByte(digits[index], digits[index + 1]);
    return bytes;
}

std::string FormatGuid(std::uint64_t guid) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(guid));
    return text;
}

Fields& Fields::Add(std::string_view key, std::string_view value) {
    text_ += ' ';
    text_ += key;
    text_ += '=';
    text_ += QuoteValue(value);
    return *this;
}

} // namespace simulator
