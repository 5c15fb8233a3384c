#include "testbed/Event.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace testbed {
namespace {

// Splits a line of the simulator's protocol into words and values.
class Scanner {
public:
    explicit Scanner(const std::string& text) : text_(text) {}

    bool AtEnd() {
        while (next_ < text_.size() && text_[next_] == ' ')
            ++next_;
        return next_ >= text_.size();
    }
    std::string Word() {
        AtEnd();
        return Until(" =");
    }
    std::string Value() {
        if (next_ < text_.size() && text_[next_] == '=')
            ++next_;
        if (next_ < text_.size() && text_[next_] == '"') {
            ++next_;
            return Quoted();
        }
        return Until(" ");
    }

private:
    std::string Until(const char* ends) {
        const std::size_t end = std::min(text_.find_first_of(ends, next_), text_.size());
        const std::string part = text_.substr(next_, end - next_);
        next_ = end;
        return part;
    }
    std::string Quoted() {
        std::string value;
        while (next_ < text_.size() && text_[next_] != '"') {
            value += text_[next_] == '\\' ? Escaped() : text_[next_];
            ++next_;
        }
        ++next_;
        return value;
    }
    // next_ is the backslash on entry, and the last character of the escape sequence on return.
    char Escaped() {
        const char letter = ++next_ < text_.size() ? text_[next_] : '\\';
        if (letter == 'x') {
            const std::string digits = text_.substr(next_ + 1, 2);
            next_ += 2;
            return static_cast<char>(std::strtol(digits.c_str(), nullptr, 16));
        }
        return letter == 'n' ? '\n' : letter == 't' ? '\t' : letter;
    }

    const std::string& text_;
    std::size_t next_ = 0;
};

} // namespace

std::string Event::operator[](const std::string& key) const {
    const auto found = values.find(key);
    return found == values.end() ? std::string() : found->second;
}

bool Event::Has(const Values& expected) const {
    return std::all_of(expected.begin(), expected.end(), [this](const auto& pair) {
        const auto found = values.find(pair.first);
        return found != values.end() && found->second == pair.second;
    });
}

std::optional<Event> ParseEvent(const std::string& line) {
    Scanner scanner(line);
    const std::string first = scanner.Word();
    if (first != "event" && first != "model")
        return std::nullopt;
    Event event;
    if (first == "event")
        event.number = std::atoi(scanner.Word().c_str());
    event.kind = scanner.Word();
    while (!scanner.AtEnd()) {
        const std::string key = scanner.Word();
        event.values[key] = scanner.Value();
    }
    return event;
}

} // namespace testbed
