#include "objects/Hash.h"
#include "objects/Object.h"

#include <CoreFoundation/CFURL.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// A file URL. Its path, without trailing slashes, follows the object.
struct __CFURL : cf::Object {
    static const cf::Class kClass;

    std::size_t pathLength;

    __CFURL(std::size_t length, bool isDirectory) noexcept
        : Object(&kClass, 1, isDirectory ? 1U : 0U), pathLength(length) {}
};

namespace cf {
namespace {

using Url = ::__CFURL;

std::string_view PathOf(const Url* url) noexcept {
    return {reinterpret_cast<const char*>(url + 1), url->pathLength};
}

bool EqualUrls(const Object* first, const Object* second) noexcept {
    return first->kind == second->kind &&
           PathOf(static_cast<const Url*>(first)) == PathOf(static_cast<const Url*>(second));
}

std::uint32_t HashUrl(const Object* object) noexcept {
    const std::string_view path = PathOf(static_cast<const Url*>(object));
    return HashBytes(path.data(), path.size());
}

std::string_view WithoutTrailingSlashes(std::string_view path) noexcept {
    const std::size_t last = path.find_last_not_of('/');
    return path.substr(0, last == std::string_view::npos ? 1 : last + 1);
}

} // namespace
} // namespace cf

constinit const cf::Class __CFURL::kClass = {cf::DestroyPlain, cf::EqualUrls, cf::HashUrl};

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* path, CFIndex length,
                                                 Boolean isDirectory) {
    if (path == nullptr || length <= 0)
        return nullptr;
    const auto stripped = cf::WithoutTrailingSlashes(
        {reinterpret_cast<const char*>(path), static_cast<std::size_t>(length)});
    auto* url = cf::Allocate<cf::Url>(stripped.size(), stripped.size(), isDirectory != 0);
    if (url != nullptr)
        std::copy(stripped.begin(), stripped.end(), reinterpret_cast<char*>(url + 1));
    return url;
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef reference, Boolean, UInt8* buffer, CFIndex size) {
    const auto* url = cf::As<cf::Url>(reference);
    if (url == nullptr || buffer == nullptr || size <= static_cast<CFIndex>(url->pathLength))
        return false;
    const std::string_view path = cf::PathOf(url);
    *std::copy(path.begin(), path.end(), buffer) = 0;
    return true;
}
