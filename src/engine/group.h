#pragma once
// CVGroup: one set of content-identical files or folders. Its children are its
// members; its size, type, name, path and type identifier come from its first members,
// read from the first member when asked (and kept in the group only when that member
// leaves it or another member gave them), so that a group costs little beyond its
// member list; it keeps the counters
// that selection, removal and the results view observe. "autocollected",
// "childrenCount", "totalSize" and "filesToRemoveCount" are announced through the
// group's change notifier on the main queue; members point back through parentGroup,
// which the group clears when it dies.

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "node.h"

namespace corvel {

class CVGroup;
using GroupPtr = std::shared_ptr<CVGroup>;

// Whether the content of top is compared on samples: a large file, an application (its
// property list), a folder holding either. Other content is compared whole.
bool comparedBySamples(const CVNode& top);

class CVGroup : public CVNode, public std::enable_shared_from_this<CVGroup> {
public:
    // A group holding the file, with allFilesForbidden taken from the file.
    static std::shared_ptr<CVGroup> initWithCVFile(const std::shared_ptr<CVFile>& file);
    CVGroup();
    ~CVGroup() override;

    void addFile(const std::shared_ptr<CVFile>& file);
    void removeFile(CVFile* file);
    // As removeFile, but childrenCount changes without a notice and parentGroup stays set.
    void removeFileSilently(CVFile* file);
    void analyseFileData(CVFile& file);

    bool single() const { return children().size() < 2; }

    // True when the members were found equal on sampled content: large files compared
    // on their samples, applications on their property lists, folders holding either or
    // holding what the walk left out of the tree (links, hidden or excluded folders).
    bool wasComparedBySamples() const;
    // The user chose to remove every copy (answering the all-copies warning): the removal
    // may then go on without a kept copy, to the Trash only.
    bool userForcedAllCopies() const { return m_userForcedAllCopies; }
    void setUserForcedAllCopies(bool value) { m_userForcedAllCopies = value; }
    // Set once the members were confirmed equal byte for byte.
    bool contentVerified() const { return m_contentVerified; }
    void setContentVerified(bool value) { m_contentVerified = value; }
    // Equal on every byte, as far as is known: confirmed, or compared whole.
    bool isVerified() const { return m_contentVerified || !wasComparedBySamples(); }
    // The results category kind for the group's node type (1 other, 2 documents,
    // 3 pictures, 4 music, 5 movies, 6 archives, 7 folders).
    std::int32_t metaGroupType() const { return metaGroupTypeForNodeType(type()); }
    static std::int32_t metaGroupTypeForNodeType(NodeType nodeType);

    bool autocollected() const;
    void setAutocollected(bool value);
    bool mixedGroup() const { return m_mixedGroup; }
    bool allFilesForbidden() const { return m_allFilesForbidden; }
    void setAllFilesForbidden(bool value) { m_allFilesForbidden = value; }
    std::int64_t filesToRemoveCount() const;
    void setFilesToRemoveCount(std::int64_t count);
    std::int64_t silentFilesToRemoveCount() const;
    void setSilentFilesToRemoveCount(std::int64_t count);
    std::uint64_t totalSize() const;
    void setTotalSize(std::uint64_t size);
    std::uint64_t removedFilesCount() const;
    void setRemovedFilesCount(std::uint64_t count);
    std::string utiType() const;

    // The first member's path, title and type identifier, or what the group keeps.
    std::string path() const override;
    std::string name() const override;
    std::string uti() const override;

    // Add or subtract one marked member and clear autocollected; the decrement does
    // nothing while the count is below 1.
    void incFilesToRemoveCount();
    void decFilesToRemoveCount();
    // Copies the silent count into filesToRemoveCount on the main thread (queued from elsewhere).
    void manifest();

    // The first member's path; empty for an empty group.
    std::string groupPath() const;
    // The members as files, in order.
    std::vector<std::shared_ptr<CVFile>> files() const;
    // The members not removed behind the program's back, in order.
    std::vector<std::shared_ptr<CVFile>> existentChildren() const;
    // True when every member is the same file through hard links (by inode number).
    bool hardLinkCheck() const;

    // The file URL of the folder above the members' deepest common folder; computed once.
    std::string basePathForFiles();
    // The display path of the members' common folder; computed once; empty without members.
    std::string commonPath();

    // Orders groups as their names do (plain and case-insensitive).
    int compare(const CVGroup& other) const;
    int caseInsensitiveCompare(const CVGroup& other) const;

protected:
    NodeChildSlot* childSlot() override { return &m_children; }

private:
    template <typename Write> void changeCounter(std::string_view key, Write write);
    // The first member, when the group reads its name or path from it.
    const CVFile* firstMember() const;
    // Keeps what the group reads from its first member, before that member leaves.
    void keepWhatTheFirstMemberGives(const CVFile* leaving);

    struct CommonPaths {
        std::optional<std::string> basePath;
        std::optional<std::string> commonPath;
    };

    // The counters below are guarded by the node's lock.
    bool m_autocollected = false;
    bool m_nameFromFirst = false; // the name is the first member's title
    bool m_leadFromFirst = false; // the path and type identifier are the first member's
    bool m_mixedGroup = false;
    bool m_allFilesForbidden = false;
    bool m_contentVerified = false;
    bool m_userForcedAllCopies = false;
    std::int64_t m_filesToRemoveCount = 0;
    std::int64_t m_silentFilesToRemoveCount = 0;
    std::uint64_t m_totalSize = 0;
    std::uint64_t m_removedFilesCount = 0;
    std::string m_utiType;
    std::unique_ptr<CommonPaths> m_commonPaths; // made when first asked
    NodeChildSlot m_children;                   // the members
};

} // namespace corvel
