#include "lists/ReadStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cf {

namespace {

constexpr std::size_t kChunk = 16384;

// Calls a function of the system again as long as signals interrupt it.
template<typename Call>
auto Retry(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

bool IsFileOrDirectory(const struct stat& status) {
    return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

// Looks before it opens, because opening alone makes some devices act, and again at what it got.
int OpenFileOrDirectory(const char* path) {
    struct stat status {};
    if (stat(path, &status) != 0 || !IsFileOrDirectory(status))
        return -1;
    const int descriptor =
        Retry([path] { return open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    if (descriptor < 0)
        return -1;
    if (fstat(descriptor, &status) == 0 && IsFileOrDirectory(status))
        return descriptor;
    close(descriptor);
    return -1;
}

void CloseDescriptor(ReadStream* stream) {
    if (stream->descriptor >= 0)
        close(stream->descriptor);
    stream->descriptor = -1;
}

void DestroyStream(Object* object) noexcept {
    auto* stream = static_cast<ReadStream*>(object);
    CloseDescriptor(stream);
    CFRelease(stream->url);
    std::free(stream);
}

} // namespace

std::optional<std::vector<std::uint8_t>> ReadBytes(ReadStream* stream, std::size_t maximum) {
    if (stream == nullptr || stream->state != StreamState::Open)
        return std::nullopt;
    std::vector<std::uint8_t> bytes;
    std::size_t filled = 0;
    while (filled < maximum) {
        bytes.resize(filled + std::min(kChunk, maximum - filled));
        const ssize_t count = Retry(
            [&] { return read(stream->descriptor, bytes.data() + filled, bytes.size() - filled); });
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        filled += static_cast<std::size_t>(count);
    }
    bytes.resize(filled);
    return bytes;
}

} // namespace cf

constinit const cf::Class __CFReadStream::kClass = {"CFReadStream", cf::DestroyStream, nullptr,
                                                    nullptr};

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
    if (stream == nullptr || stream->state != cf::StreamState::New)
        return false;
    std::array<UInt8, PATH_MAX> path;
    if (CFURLGetFileSystemRepresentation(stream->url, true, path.data(), path.size()))
        stream->descriptor = cf::OpenFileOrDirectory(reinterpret_cast<const char*>(path.data()));
    const bool opened = stream->descriptor >= 0;
    stream->state = opened ? cf::StreamState::Open : cf::StreamState::Failed;
    return opened;
}

void CFReadStreamClose(CFReadStreamRef reference) {
    auto* stream = cf::As<cf::ReadStream>(reference);
    if (stream == nullptr || stream->state != cf::StreamState::Open)
        return;
    cf::CloseDescriptor(stream);
    stream->state = cf::StreamState::Closed;
}
