#pragma once
// CVDuplicatesController: the result of one scan. It keeps the duplicate groups in the
// order the scan delivered them, every member file by path, and the categories with
// their counts and sizes. A filter predicate (applied to the files of each group)
// narrows the groups the views see and what the categories count.
//
// Threads: the scan thread adds groups while it runs; afterwards the main thread reads
// and shrinks the collection. Change notices ("duplicatesGroups", "metaGroups",
// "count", "allFiles") reach observers on the main queue. The collection takes a lock
// only around its own containers.

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/group.h"
#include "meta_group.h"
#include "platform/change_notifier.h"
#include "platform/error.h"
#include "platform/predicate.h"

namespace corvel {

using GroupPtr = std::shared_ptr<CVGroup>;
using FilePtr = std::shared_ptr<CVFile>;

class CVDuplicatesController {
public:
    CVDuplicatesController();

    void addGroup(const GroupPtr& group);
    void addGroupsArray(const std::vector<GroupPtr>& groups);
    void addFiles(const std::vector<FilePtr>& files);

    // Removes the group and its files from the tables; categories are left as they are.
    void removeGroup(const GroupPtr& group);
    // Removes the groups with notices, then recalculates the categories.
    void removeGroupsLoud(const std::vector<GroupPtr>& groups);
    // Removes a known file from its group (silently); a group left with one member goes too.
    void removeFile(const FilePtr& file);
    void removeFiles(const std::vector<FilePtr>& files);
    void removeDeletedFiles();
    // A file moved: into a trash (a ".Trash" folder, or the freedesktop home trash under
    // $XDG_DATA_HOME/Trash) it leaves the results; elsewhere it is
    // re-keyed under its new path (the same path twice drops it from the table).
    void changeFilePath(const std::string& oldPath, const std::string& newPath);

    // Category 0's figures: number of groups and their total size on disk.
    std::uint64_t count() const;
    std::uint64_t size() const;
    std::vector<FilePtr> allFiles() const;
    FilePtr fileAtPath(const std::string& path) const;
    // Every group, unfiltered, in insertion order.
    std::vector<GroupPtr> allDuplicatesGroups() const;
    // The groups the filter lets through: those with at least one file that satisfies it.
    std::vector<GroupPtr> duplicatesGroups() const;
    std::vector<std::shared_ptr<CVMetaGroup>> metaGroups() const;
    std::shared_ptr<CVMetaGroup> mainMetaGroup() const;

    // Sets the filter (empty: none) and recalculates the categories. A malformed
    // predicate is logged and lets every group through.
    void setFilterPredicate(const std::string& predicate);
    const std::string& filterPredicate() const { return m_filterPredicate; }
    void recalcMetaGroups();

    // The export text: each selected file's path and a line feed, and an empty line
    // after every group that contributed; groups in insertion order. nulSeparated: each
    // path followed by a NUL byte instead, no group separators (names may hold line feeds).
    std::string exportText(bool nulSeparated = false) const;
    // How many selected copies have a line feed in their path: a list of one path per line
    // would read each of them back as two paths, one of which may be a copy meant to stay.
    std::size_t selectedPathsWithLineBreakCount() const;
    // Saves the export text at path (UTF-8) with saveFile: a list already there is
    // replaced only once the whole new one is on disk. A list of one path per line is not
    // written at all when a selected path holds a line feed (EINVAL). On failure logs
    // "Error saving list of selected dupes: %@" and fills *error. Posts
    // "CVExportPanelDidClose" either way.
    [[nodiscard]] bool exportSelectedDupesToPath(const std::string& path, CVError* error,
                                                 bool nulSeparated = false) const;
    void collectAllDuplicatesAtPath(const std::string& /*path*/) {}

    ChangeNotifier& changeNotifier() { return m_notifier; }

private:
    void addGroupToMetaGroupsLocked(const GroupPtr& group);
    void removeFileLocked(const FilePtr& file);
    // Files the members of the groups added since the last call, then the files added
    // on their own, into the table.
    void indexLocked() const;
    // Takes the group out of the list (nothing when it is not there), keeping the count
    // of indexed groups right.
    void eraseGroupLocked(const GroupPtr& group);
    std::vector<GroupPtr> filteredLocked() const;

    mutable std::recursive_mutex m_mutex;
    std::vector<std::shared_ptr<CVMetaGroup>> m_metaGroups;
    std::shared_ptr<CVMetaGroup> m_mainMetaGroup;
    std::vector<GroupPtr> m_duplicatesGroupsArray;
    // Files by path, filed on the first look-up after they were added: a scan adds tens
    // of thousands that a command-line run never looks up. The groups from
    // m_indexedGroups on, and the files added on their own, are not filed yet; a group's
    // files are filed as the group holds them then.
    mutable std::unordered_map<std::string, FilePtr> m_allFilesHashTable;
    mutable std::size_t m_indexedGroups = 0;
    mutable std::vector<FilePtr> m_unindexedFiles;
    std::string m_filterPredicate;
    std::optional<Predicate> m_compiledFilter;
    ChangeNotifier m_notifier;
};

} // namespace corvel
