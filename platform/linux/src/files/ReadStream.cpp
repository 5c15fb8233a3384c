#include "files/ReadStream.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>

namespace cf {

namespace {

using namespace std::chrono_literals;

constexpr auto kTimeOut = 30s;
constexpr std::size_t kMaximumBytes =
    kMaximumFileSize + 1; // the last byte shows that the file is too large

bool IsMainThread() noexcept {
    return gettid() == getpid();
}

FileContents ReadContents(const char* path) noexcept {
    try {
        return IsMainThread() ? ReadFileWithin(kTimeOut, path, kMaximumBytes)
                              : ReadFile(path, kMaximumBytes);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

void DestroyStream(Object* object) noexcept {
    auto* stream = static_cast<ReadStream*>(object);
    CFRelease(stream->url);
    std::destroy_at(stream);
    std::free(stream);
}

} // namespace

std::optional<std::span<const std::uint8_t>> ReadBytes(ReadStream* stream,
                                                       std::size_t maximum) noexcept {
    if (stream == nullptr || !stream->contents.isRead)
        return std::nullopt;
    const auto left =
        std::span<const std::uint8_t>(stream->contents.bytes).subspan(stream->position);
    const auto bytes = left.first(std::min(left.size(), maximum));
    stream->position += bytes.size();
    return bytes;
}

} // namespace cf

constinit const cf::Class __CFReadStream::kClass = {cf::DestroyStream, nullptr, nullptr};

CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef, CFURLRef url) {
    if (url == nullptr)
        return nullptr;
    auto* stream = cf::Allocate<cf::ReadStream>(0, url);
    if (stream != nullptr)
        CFRetain(url);
    return stream;
}

Boolean CFReadStreamOpen(CFReadStreamRef reference) {
    auto* stream = cf::As<cf::ReadStream>(reference);
    if (stream == nullptr || stream->wasOpened)
        return false;
    std::array<UInt8, PATH_MAX> path;
    if (CFURLGetFileSystemRepresentation(stream->url, true, path.data(), path.size()))
        stream->contents = cf::ReadContents(reinterpret_cast<const char*>(path.data()));
    stream->wasOpened = true;
    return stream->contents.isOpened;
}

void CFReadStreamClose(CFReadStreamRef reference) {
    if (auto* stream = cf::As<cf::ReadStream>(reference))
        stream->contents = {};
}
