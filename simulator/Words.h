#ifndef SIMULATOR_WORDS_H
#define SIMULATOR_WORDS_H

/* The lines of the text protocol: a word, then key=value, then key="a value with blanks". */

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace simulator {

/* What the user typed cannot be carried out; the text says why. */
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CommandLine {
    std::string word; // empty for an empty line or a comment
    std::map<std::string, std::string, std::less<>> values;
};

/* Throws CommandError when the line does not follow the protocol. */
CommandLine ParseCommandLine(std::string_view line);

/* The text in quotes, with what cannot stand there escaped. */
std::string Quote(std::string_view text);

/* The text as a value: quoted if it needs to be. */
std::string QuoteValue(std::string_view text);

/* Bytes from pairs of hexadecimal digits. Throws CommandError. */
std::string ParseHexBytes(std::string_view digits);

/* Sixteen hexadecimal digits. */
std::string FormatGuid(std::uint64_t guid);

/* The key=value part of a line of output, in the order of the calls. */
class Fields {
public:
    Fields& Add(std::string_view key, std::string_view value);
    Fields& Add(std::string_view key, const char* value) {
        return Add(key, std::string_view(value));
    }
    Fields& Add(std::string_view key, bool value) {
        return Add(key, value ? "yes" : "no");
    }
    Fields& Add(std::string_view key, std::integral auto value) {
        return Add(key, std::to_string(value));
    }
    Fields& AddChanger(std::uint64_t guid) {
        return Add("changer", FormatGuid(guid));
    }

    const std::string& Text() const {
        return text_;
    }

private:
    std::string text_;
};

} // namespace simulator

#endif
