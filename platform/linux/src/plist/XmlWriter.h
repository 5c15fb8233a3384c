#ifndef PLATFORM_XMLWRITER_H
#define PLATFORM_XMLWRITER_H

/* Writes property lists as XML, byte for byte like Core Foundation. */

#include "objects/Object.h"

#include <optional>
#include <string>

namespace cf {

/* The text, or nothing if the list contains an object that is not a property list, is nested deeper
   than kMaximumNesting, or becomes longer than kMaximumListSize. Throws std::bad_alloc. */
std::optional<std::string> WriteXmlList(const Object* list);

} // namespace cf

#endif
