#include "stage/Event.h"

#include <algorithm>
#include <cstdlib>

namespace stage {
namespace {

// Reads words and values from a line of the simulator's protocol.
class Scanner {
public:
    explicit Scanner(const std::string& text) : m_text(text) {}

    bool AtEnd() {
        while (m_next < m_text.size() && m_text[m_next] == ' ') {
            ++m_next;
        }
        return m_next >= m_text.size();
    }
    std::string Word() {
        AtEnd();
        return Until(" =");
    }
    std::string Value() {
        if (m_next < m_text.size() && m_text[m_next] == '=') {
            ++m_next;
        }
        if (m_next < m_text.size() && m_text[m_next] == '"') {
            ++m_next;
            return Quoted();
        }
        return Until(" ");
    }

private:
    std::string Until(const char* ends) {
        const std::size_t end = std::min(m_text.find_first_of(ends, m_next), m_text.size());
        const std::string part = m_text.substr(m_next, end - m_next);
        m_next = end;
        return part;
    }
    std::string Quoted() {
        std::string value;
        while (m_next < m_text.size() && m_text[m_next] != '"') {
            value += m_text[m_next] == '\\' ? Escaped() : m_text[m_next];
            ++m_next;
        }
        ++m_next;
        return value;
    }
    // Stands on the backslash, and afterwards on the last character of the escape.
    char Escaped() {
        const char letter = ++m_next < m_text.size() ? m_text[m_next] : '\\';
        if (letter == 'x') {
            const std::string digits = m_text.substr(m_next + 1, 2);
            m_next += 2;
            return static_cast<char>(std::strtol(digits.c_str(), nullptr, 16));
        }
        return letter == 'n' ? '\n' : letter == 't' ? '\t' : letter;
    }

    const std::string& m_text;
    std::size_t m_next = 0;
};

} // namespace

std::string Event::operator[](const std::string& key) const {
    const auto found = values.find(key);
    return found == values.end() ? std::string() : found->second;
}

bool Event::Has(const Values& wanted) const {
    return std::all_of(wanted.begin(), wanted.end(), [this](const auto& pair) {
        const auto found = values.find(pair.first);
        return found != values.end() && found->second == pair.second;
    });
}

std::optional<Event> ParseEvent(const std::string& line) {
    Scanner scanner(line);
    const std::string first = scanner.Word();
    if (first != "event" && first != "model") {
        return std::nullopt;
    }
    Event event;
    if (first == "event") {
        event.number = std::atoi(scanner.Word().c_str());
    }
    event.kind = scanner.Word();
    while (!scanner.AtEnd()) {
        const std::string key = scanner.Word();
        event.values[key] = scanner.Value();
    }
    return event;
}

} // namespace stage
