#include "compared_tree_removal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_access.h"
#include "platform/file_dates.h"
#include "platform/file_io.h"
#include "platform/unique_fd.h"

namespace corvel {

namespace {

constexpr int kOpenFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// As isAsCompared; a file whose other name this removal has just unlinked has a new change
// time from that, so its change time is not asked then.
bool isListedAs(const struct stat& st, const ComparedEntry& entry, bool changeTimeFromUs) {
    if (static_cast<std::uint64_t>(st.st_dev) != entry.device ||
        static_cast<std::uint64_t>(st.st_ino) != entry.inode || (st.st_mode & S_IFMT) != entry.type)
        return false;
    if (entry.type != S_IFREG)
        return true;
    return static_cast<std::uint64_t>(st.st_size) == entry.size &&
           nanosecondsSince1970(st.st_mtim) == entry.modificationTime &&
           (changeTimeFromUs || nanosecondsSince1970(st.st_ctim) == entry.changeTime);
}

// An open folder of the walk and where it lies.
struct Level {
    UniqueFd fd;
    std::string path;
    std::string name; // in the level below
    ComparedEntry entry;
};

class Removal {
public:
    explicit Removal(std::string* why) : m_why(why) {}

    std::size_t removed() const { return m_removed; }

    bool run(const std::string& path, const std::vector<ComparedEntry>& compared, int parentFd) {
        if (compared.empty() || compared.front().depth != 0 || compared.front().type != S_IFDIR)
            return keep(path, "no comparison of the folder to go by");
        UniqueFd opened;
        if (parentFd < 0) {
            opened = UniqueFd(::open(parentPath(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            if (!opened.valid())
                return keep(path, std::strerror(errno));
            parentFd = opened.get();
        }
        const std::string rootName = lastPathComponent(path);
        if (!enter(parentFd, path, rootName, compared.front()))
            return false;
        for (std::size_t i = 1; i < compared.size(); ++i) {
            const ComparedEntry& entry = compared[i];
            while (m_levels.size() > entry.depth)
                leave(parentFd);
            if (m_levels.size() != entry.depth)
                continue; // inside a folder that stays
            const Level& folder = m_levels.back();
            const std::string entryPath = folder.path + "/" + entry.name;
            if (entry.type == S_IFDIR) {
                enter(folder.fd.get(), entryPath, entry.name, entry);
                continue;
            }
            struct stat st {};
            if (::fstatat(folder.fd.get(), entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
                if (errno != ENOENT) // gone already: nothing to remove
                    keep(entryPath, std::strerror(errno));
                continue;
            }
            const std::pair<std::uint64_t, std::uint64_t> inode{entry.device, entry.inode};
            if (!isListedAs(st, entry, m_unlinkedLinks.contains(inode))) {
                keep(entryPath, "changed since the comparison");
                continue;
            }
            if (::unlinkat(folder.fd.get(), entry.name.c_str(), 0) != 0) {
                if (errno != ENOENT)
                    keep(entryPath, std::strerror(errno));
                continue;
            }
            ++m_removed;
            if (st.st_nlink > 1)
                m_unlinkedLinks.insert(inode);
        }
        while (!m_levels.empty())
            leave(parentFd);
        return !m_keptAny;
    }

private:
    // Opens a listed folder when it is still the one compared; false (it stays) otherwise.
    bool enter(int parentFd, const std::string& path, const std::string& name, const ComparedEntry& entry) {
        UniqueFd fd(::openat(parentFd, name.c_str(), kOpenFolderFlags));
        struct stat st {};
        if (!fd.valid() || ::fstat(fd.get(), &st) != 0)
            return keep(path, std::strerror(errno));
        if (!isListedAs(st, entry, false))
            return keep(path, "changed since the comparison");
        m_levels.push_back(Level{std::move(fd), path, name, entry});
        return true;
    }

    // Closes the innermost folder and removes it when it is empty.
    void leave(int rootParentFd) {
        Level level = std::move(m_levels.back());
        m_levels.pop_back();
        level.fd.reset();
        const int parentFd = m_levels.empty() ? rootParentFd : m_levels.back().fd.get();
        // The name may have been given to another folder meanwhile.
        struct stat st {};
        if (::fstatat(parentFd, level.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
            !isListedAs(st, level.entry, false)) {
            keep(level.path, "changed since the comparison");
            return;
        }
        if (::unlinkat(parentFd, level.name.c_str(), AT_REMOVEDIR) != 0)
            keep(level.path, errno == ENOTEMPTY || errno == EEXIST
                                 ? "holds entries the comparison did not see"
                                 : std::strerror(errno));
        else
            ++m_removed;
    }

    bool keep(const std::string& path, const std::string& reason) {
        if (!m_keptAny && m_why)
            *m_why = path + ": " + reason;
        m_keptAny = true;
        return false;
    }

    std::string* m_why;
    std::vector<Level> m_levels;
    bool m_keptAny = false;
    std::size_t m_removed = 0;
    std::set<std::pair<std::uint64_t, std::uint64_t>> m_unlinkedLinks; // files with another name left
};

} // namespace

bool isAsCompared(const struct stat& st, const ComparedEntry& entry) {
    return isListedAs(st, entry, false);
}

bool removeComparedTree(const std::string& path, const std::vector<ComparedEntry>& compared, std::string* why,
                        int parentFd, std::size_t* removed) {
    Removal removal(why);
    const bool gone = removal.run(path, compared, parentFd);
    if (removed)
        *removed = removal.removed();
    return gone;
}

std::optional<EntryRefusal> comparedTreeRefusal(const std::string& path,
                                                const std::vector<ComparedEntry>& compared) {
    // The folder of each depth, as the list walks down, and what the user may do in it.
    std::vector<std::pair<std::string, FolderRemovalAccess>> folders;
    for (const ComparedEntry& entry : compared) {
        if (entry.depth == 0) {
            folders.assign(1, {path, folderRemovalAccess(path)});
            continue;
        }
        if (entry.depth > folders.size())
            continue; // below a folder the list left
        folders.resize(entry.depth);
        const auto& [folder, access] = folders.back();
        const std::string entryPath = folder + "/" + entry.name;
        if (access.refusal != 0)
            return EntryRefusal{entryPath, access.refusal};
        const ItemRemovalAccess item = itemRemovalAccess(entryPath);
        if (!item.exists)
            return EntryRefusal{entryPath, ENOENT};
        if (!isDeletableByUser(item, access))
            return EntryRefusal{entryPath, EPERM};
        if (entry.type == S_IFDIR)
            folders.emplace_back(entryPath, folderRemovalAccess(entryPath));
    }
    return std::nullopt;
}

} // namespace corvel
