#include "testbed/Pattern.h"

#include "testbed/Failure.h"

#include <cstring>

namespace testbed {

Pattern::Pattern(const std::string& expression) {
    auto compiled = std::make_unique<regex_t>();
    const std::string whole = "^(" + expression + ")$";
    if (regcomp(compiled.get(), whole.c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        throw Failure("malformed pattern: " + expression);
    const auto release = [](regex_t* expired) {
        regfree(expired);
        delete expired;
    };
    compiled_ = {compiled.release(), release};
}

bool Pattern::Matches(const std::string& line) const {
    return regexec(compiled_.get(), line.c_str(), 0, nullptr, 0) == 0;
}

std::string Pattern::Escape(const std::string& text) {
    std::string expression;
    for (const char letter : text) {
        if (std::strchr(".^$|()[]{}*+?\\", letter) != nullptr)
            expression += '\\';
        expression += letter;
    }
    return expression;
}

} // namespace testbed
