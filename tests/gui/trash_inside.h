#pragma once
// XDG_DATA_HOME (and so the home Trash) inside a test's tree while the object lives; the
// earlier value comes back when it dies.

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/temp_tree.h"

namespace corvel::test {

class TrashInside {
public:
    explicit TrashInside(const TempTree& tree) : m_data(tree / "data") {
        const char* old = std::getenv("XDG_DATA_HOME");
        m_old = old ? old : "";
        std::filesystem::create_directories(m_data);
        ::setenv("XDG_DATA_HOME", m_data.c_str(), 1);
    }
    ~TrashInside() { ::setenv("XDG_DATA_HOME", m_old.c_str(), 1); }
    TrashInside(const TrashInside&) = delete;
    TrashInside& operator=(const TrashInside&) = delete;

    std::string files() const { return m_data + "/Trash/files"; }
    std::string info() const { return m_data + "/Trash/info"; }

private:
    std::string m_data;
    std::string m_old;
};

} // namespace corvel::test
