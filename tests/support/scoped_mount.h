#pragma once
// A file system mounted for one test, unmounted (lazily) when dropped: declare it after the
// TempTree that holds its mount point. Mounting needs root; without it, or when mount(2)
// refuses, mounted() is false and why() says why, for the test's skip message.

#include <cerrno>
#include <cstring>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace corvel::test {

class ScopedMount {
public:
    ScopedMount(const std::string& source, const std::string& target, const char* type, unsigned long flags,
                const char* options = nullptr)
        : m_target(target) {
        if (::geteuid() != 0) {
            m_why = "not root";
            return;
        }
        if (::mount(source.c_str(), target.c_str(), type, flags, options) != 0) {
            m_why = std::string("mount: ") + std::strerror(errno);
            return;
        }
        m_mounted = true;
    }
    ~ScopedMount() {
        if (m_mounted)
            ::umount2(m_target.c_str(), MNT_DETACH);
    }
    ScopedMount(const ScopedMount&) = delete;
    ScopedMount& operator=(const ScopedMount&) = delete;
    bool mounted() const { return m_mounted; }
    const std::string& why() const { return m_why; }

private:
    std::string m_target;
    std::string m_why;
    bool m_mounted = false;
};

} // namespace corvel::test
