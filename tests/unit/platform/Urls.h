#ifndef TESTS_UNIT_PLATFORM_URLS_H
#define TESTS_UNIT_PLATFORM_URLS_H

#include <CoreFoundation/CoreFoundation.h>

#include <string_view>

/* A new reference that the caller owns; nullptr if memory is short. */
inline CFURLRef CreateUrl(std::string_view path, bool isDirectory = false) {
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(path.data()),
                                                   static_cast<CFIndex>(path.size()), isDirectory);
}

#endif
