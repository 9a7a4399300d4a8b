#pragma once
// FolderNames: the names in one folder, read from an open descriptor and kept in byte
// order. Readdir order differs from one file system to another, and folders are
// compared child by child by position, so the walk lists every folder sorted.
//
// A value owned by one thread at a time; read() may be called again to reuse the
// buffers for another folder.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/node_type_generator.h"

namespace corvel {

class FolderNames final : public FolderListing {
public:
    // Reads every name but "." and ".." from the open folder fd (which stays open, its
    // position at the end). On failure answers false with errno in error and holds no
    // name.
    bool read(int fd, int& error);
    // Holds no name.
    void clear();

    [[nodiscard]] std::size_t size() const { return m_names.size(); }
    [[nodiscard]] std::string_view name(std::size_t i) const {
        return {m_text.data() + m_names[i].offset, m_names[i].length};
    }
    // The entry's kind as the folder tells it (DT_DIR, DT_LNK, ...), DT_UNKNOWN when the
    // file system does not say.
    [[nodiscard]] unsigned char kind(std::size_t i) const { return m_names[i].kind; }

    // Whether the folder holds an entry of that name (a binary search).
    [[nodiscard]] bool contains(std::string_view name) const override;

private:
    struct Name {
        std::uint32_t offset;
        std::uint32_t length;
        unsigned char kind;
    };
    std::string m_text;
    std::vector<Name> m_names;
};

} // namespace corvel
