#ifndef SIMULATOR_DESCRIPTOR_H
#define SIMULATOR_DESCRIPTOR_H

/* Ownership of file descriptors, and an event that poll() can wait for. */

#include <string_view>
#include <utility>

namespace simulator {

/* Owns a file descriptor; -1 is none. */
class Descriptor {
public:
    Descriptor() = default;
    // Takes ownership of `descriptor`.
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor();

    // The descriptor, still owned by the object; -1 if none.
    int Get() const {
        return descriptor_;
    }

private:
    int descriptor_ = -1;
};

/* Writes all bytes; blocks while the reader is slow. Returns silently on an error. */
void WriteAll(int descriptor, std::string_view bytes);

/* An event whose descriptor is readable from Signal() until Reset(). Any thread may call. */
class WakeEvent {
public:
    // Throws std::system_error if the kernel has no descriptor left.
    WakeEvent();

    // Makes the event readable, or not readable.
    void Signal() const;
    void Reset() const;
    // The descriptor for poll(), owned by the object.
    int Get() const {
        return event_.Get();
    }

private:
    Descriptor event_;
};

} // namespace simulator

#endif
