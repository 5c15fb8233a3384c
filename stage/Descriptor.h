#ifndef STAGE_DESCRIPTOR_H
#define STAGE_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace stage {

// Owns a file descriptor; -1 is none.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Descriptor() {
        Close();
    }

    int Get() const {
        return m_number;
    }
    explicit operator bool() const {
        return m_number >= 0;
    }
    void Close() {
        if (m_number >= 0) {
            close(std::exchange(m_number, -1));
        }
    }

private:
    int m_number = -1;
};

} // namespace stage

#endif
