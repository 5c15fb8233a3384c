#ifndef TESTBED_PATTERN_H
#define TESTBED_PATTERN_H

#include <regex.h>

#include <memory>
#include <string>

namespace testbed {

/* A POSIX extended regular expression that must match a whole line. std::regex is not used: it
   shares an unsynchronised cache between threads, which the thread sanitizer reports. */
class Pattern {
public:
    // Throws Failure if the expression is malformed.
    explicit Pattern(const std::string& expression);

    // True if the whole line matches. May be called on any thread.
    bool Matches(const std::string& line) const;

    // Returns an expression that matches exactly this text.
    static std::string Escape(const std::string& text);

private:
    std::shared_ptr<const regex_t> compiled_;
};

} // namespace testbed

#endif
