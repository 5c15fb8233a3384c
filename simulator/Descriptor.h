#ifndef SIMULATOR_DESCRIPTOR_H
#define SIMULATOR_DESCRIPTOR_H

/* File descriptors that close themselves, and an event that a poll can wait for. */

#include <string_view>
#include <utility>

namespace simulator {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor();

    int Get() const {
        return descriptor_;
    }

private:
    int descriptor_ = -1;
};

/* Gives up silently when nobody takes the bytes any more, or the descriptor is none. */
void WriteAll(int descriptor, std::string_view bytes);

/* Readable in poll() from Ring() until Clear(). Any thread may ring. */
class WakeEvent {
public:
    WakeEvent();

    void Signal() const;
    void Reset() const;
    int Get() const {
        return event_.Get();
    }

private:
    Descriptor event_;
};

} // namespace simulator

#endif
