#pragma once
// UniqueFd: owns an open file descriptor and closes it when dropped. Not copyable;
// moves hand the descriptor over. One thread at a time.

#include <unistd.h>
#include <utility>

namespace corvel {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    void reset() {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }
    // Closes now and answers whether close reported no error (a delayed write error
    // shows here on some file systems).
    bool close() {
        const int fd = std::exchange(m_fd, -1);
        return fd < 0 || ::close(fd) == 0;
    }

private:
    int m_fd = -1;
};

} // namespace corvel
