// Owner of a file descriptor.
#pragma once

#include <unistd.h>
#include <utility>

namespace platform::linux {

// Owns one descriptor, closed when the owner goes or is assigned to. A default-made owner holds none. One thread at a
// time.
class CFileDescriptor {
public:
    CFileDescriptor() = default;
    // descriptor: -1 for none.
    explicit CFileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~CFileDescriptor() { Close(); }
    CFileDescriptor(CFileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    CFileDescriptor& operator=(CFileDescriptor&& other) noexcept
    {
        if (this != &other) {
            Close();
            m_descriptor = std::exchange(other.m_descriptor, -1);
        }
        return *this;
    }

    int Get() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }

private:
    void Close()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }

    int m_descriptor = -1;
};

} // namespace platform::linux
