#ifndef TESTBED_PATTERN_H
#define TESTBED_PATTERN_H

#include <memory>
#include <regex.h>
#include <string>

namespace testbed {

/* An extended POSIX regular expression for a whole line. (That of the C++ library shares an
   unguarded cache between threads, which the thread sanitizer reports.) */
class Pattern {
public:
    explicit Pattern(const std::string& expression);

    bool Matches(const std::string& line) const;

    // An expression for just this text.
    static std::string Escape(const std::string& text);

private:
    std::shared_ptr<const regex_t> compiled_;
};

} // namespace testbed

#endif
