#ifndef PLATFORM_XMLCHARACTERDATA_H
#define PLATFORM_XMLCHARACTERDATA_H

/* The text inside an element, entities and CDATA sections resolved. */

#include "lists/XmlSlice.h"

#include <string>

namespace cf {

// Reads from the end of the opening tag to the closing tag. Anything else inside is refused.
std::string ReadCharacterData(XmlSlice rest);

} // namespace cf

#endif
