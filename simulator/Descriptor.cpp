#include "simulator/Descriptor.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <system_error>

namespace simulator {

Descriptor::~Descriptor() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

void WriteAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count >= 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return;
    }
}

WakeEvent::WakeEvent() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event_.Get() < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

void WakeEvent::Signal() const {
    eventfd_write(event_.Get(),
                  1); // fails only if the counter is at its maximum, so already readable
}

void WakeEvent::Reset() const {
    eventfd_t count = 0;
    eventfd_read(event_.Get(), &count);
}

} // namespace simulator
