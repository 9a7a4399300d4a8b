#include "folder_names.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>

namespace corvel {

namespace {

constexpr std::size_t kBufferBytes = 32768;

bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace

bool FolderNames::read(int fd, int& error) {
    clear();
    // getdents64 records, 8-byte aligned; one buffer per thread serves every folder.
    thread_local std::vector<std::uint64_t> records(kBufferBytes / sizeof(std::uint64_t));
    char* buffer = reinterpret_cast<char*>(records.data());
    for (;;) {
        const ssize_t got = ::getdents64(fd, buffer, kBufferBytes);
        if (got == 0)
            break;
        if (got < 0) {
            error = errno;
            clear();
            return false;
        }
        for (ssize_t at = 0; at < got;) {
            const auto* record = reinterpret_cast<const dirent64*>(buffer + at);
            at += record->d_reclen;
            if (isDotOrDotDot(record->d_name))
                continue;
            const std::size_t length = std::strlen(record->d_name);
            m_names.push_back({static_cast<std::uint32_t>(m_text.size()), static_cast<std::uint32_t>(length),
                               record->d_type});
            m_text.append(record->d_name, length);
        }
    }
    std::sort(m_names.begin(), m_names.end(), [this](const Name& a, const Name& b) {
        return std::string_view(m_text.data() + a.offset, a.length) <
               std::string_view(m_text.data() + b.offset, b.length);
    });
    return true;
}

void FolderNames::clear() {
    m_text.clear();
    m_names.clear();
}

bool FolderNames::contains(std::string_view name) const {
    const auto found =
        std::lower_bound(m_names.begin(), m_names.end(), name, [this](const Name& a, std::string_view b) {
            return std::string_view(m_text.data() + a.offset, a.length) < b;
        });
    return found != m_names.end() && std::string_view(m_text.data() + found->offset, found->length) == name;
}

} // namespace corvel
