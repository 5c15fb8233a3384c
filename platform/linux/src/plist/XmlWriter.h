#ifndef PLATFORM_XMLWRITER_H
#define PLATFORM_XMLWRITER_H

/* Property lists as XML, byte for byte as a Core Foundation writes them. */

#include "objects/Object.h"

#include <optional>
#include <string>

namespace cf {

/* Nothing when the list holds what is no property list, is nested deeper than kMaximumNesting or
   becomes longer than kMaximumListSize. Throws std::bad_alloc. */
std::optional<std::string> WriteXmlList(const Object* list);

} // namespace cf

#endif
