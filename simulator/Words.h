#ifndef SIMULATOR_WORDS_H
#define SIMULATOR_WORDS_H

/* The lines of the text protocol: a word, then arguments: key=value or key="a value with blanks".
 */

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace simulator {

/* A command that cannot be executed; the text is the answer to the user. */
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CommandLine {
    std::string word; // empty for an empty line or a comment
    std::map<std::string, std::string, std::less<>> values;
};

/* Parses one line. Throws CommandError if the syntax is wrong or an argument is given twice. */
CommandLine ParseCommandLine(std::string_view line);

/* Returns `text` in double quotes; escapes quotes, backslashes and control characters. */
std::string Quote(std::string_view text);

/* Returns `text` as the value of an argument: quoted only if necessary. */
std::string QuoteValue(std::string_view text);

/* Decodes pairs of hexadecimal digits. Throws CommandError on any other input. */
std::string ParseHexBytes(std::string_view digits);

/* Returns sixteen hexadecimal digits, in upper case. */
std::string FormatGuid(std::uint64_t guid);

/* The key=value part of a line of output, in the order of the calls. */
class Fields {
public:
    // Append " key=value", the value quoted if necessary; a boolean is yes or no. Return the object
    // itself.
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

    // The text so far, which begins with a blank unless it is empty.
    const std::string& Text() const {
        return text_;
    }

private:
    std::string text_;
};

} // namespace simulator

#endif
