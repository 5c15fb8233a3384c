#ifndef TESTBED_DESCRIPTOR_H
#define TESTBED_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace testbed {

/* Owns a file descriptor; -1 stands for none. Movable, not copyable. */
class Descriptor {
public:
    Descriptor() = default;
    // Takes ownership; closes it at destruction.
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        Close();
    }

    // The descriptor, -1 if none; this object keeps the ownership.
    int Get() const {
        return number_;
    }
    // True if there is a descriptor.
    explicit operator bool() const {
        return number_ >= 0;
    }
    // Closes the descriptor, if there is one.
    void Close() {
        if (number_ >= 0)
            close(std::exchange(number_, -1));
    }

private:
    int number_ = -1;
};

} // namespace testbed

#endif
