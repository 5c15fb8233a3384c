#ifndef TESTS_UNIT_CHANGERCTL_XMLCHANGERS_H
#define TESTS_UNIT_CHANGERCTL_XMLCHANGERS_H

/* The changers of a "changer info" that is written as XML. */

#include "changerctl/Changer.h"
#include "support/CFOwned.h"

#include <string>
#include <vector>

/* Reads the elements of a property list: "<array>...</array>". */
inline std::vector<changerctl::Changer> ReadXmlChangers(const std::string& elements) {
    const std::string xml = "<plist version=\"1.0\">" + elements + "</plist>";
    const CFOwned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                               reinterpret_cast<const UInt8*>(xml.data()),
                                               static_cast<CFIndex>(xml.size())));
    const CFOwned<CFPropertyListRef> list(CFPropertyListCreateFromXMLData(
        kCFAllocatorDefault, data, kCFPropertyListImmutable, nullptr));
    return changerctl::ReadChangers(list);
}

/* The only changer of a "changer info" with these members. */
inline changerctl::Changer ReadXmlChanger(const std::string& members) {
    return ReadXmlChangers("<array><dict>" + members + "</dict></array>").at(0);
}

#endif
