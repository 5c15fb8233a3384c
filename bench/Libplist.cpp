#include "Libplist.h"

#include <cstdint>
#include <stdexcept>

namespace bench {

plist_t ParseByLibplist(const std::string& text) {
    plist_t list = nullptr;
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &list);
    if (list == nullptr)
        throw std::runtime_error("libplist cannot read a notification");
    return list;
}

} // namespace bench
