#ifndef PLATFORM_MALFORMEDLIST_H
#define PLATFORM_MALFORMEDLIST_H

#include <stdexcept>

namespace cf {

/* What the readers throw when bytes are no property list. Its text is UTF-8. */
class MalformedList : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace cf

#endif
