#include "duplicates_controller.h"

#include <algorithm>
#include <cerrno>

#include "engine/node_key_values.h"
#include "platform/file_io.h"
#include "platform/notification_center.h"
#include "platform/system_log.h"
#include "platform/user_paths.h"

namespace corvel {

CVDuplicatesController::CVDuplicatesController()
    : m_mainMetaGroup(std::make_shared<CVMetaGroup>(kMetaGroupAll)) {
    m_metaGroups.push_back(m_mainMetaGroup);
}

void CVDuplicatesController::addGroupToMetaGroupsLocked(const GroupPtr& group) {
    const std::uint64_t files = group->childrenCount();
    const std::uint64_t total = group->totalSize();
    m_mainMetaGroup->incCount();
    m_mainMetaGroup->incFilesCount(files);
    m_mainMetaGroup->incSize(total);
    const std::int32_t kind = group->metaGroupType();
    auto it = std::find_if(m_metaGroups.begin(), m_metaGroups.end(),
                           [kind](const auto& meta) { return meta->groupID() == kind; });
    std::shared_ptr<CVMetaGroup> meta;
    if (it == m_metaGroups.end()) {
        meta = std::make_shared<CVMetaGroup>(kind);
        m_metaGroups.push_back(meta);
    } else {
        meta = *it;
    }
    meta->incCount();
    meta->incFilesCount(files);
    meta->incSize(total);
}

void CVDuplicatesController::addGroup(const GroupPtr& group) {
    std::lock_guard lock(m_mutex);
    m_duplicatesGroupsArray.push_back(group);
    addGroupToMetaGroupsLocked(group);
}

void CVDuplicatesController::indexLocked() const {
    for (; m_indexedGroups < m_duplicatesGroupsArray.size(); ++m_indexedGroups)
        for (const auto& file : m_duplicatesGroupsArray[m_indexedGroups]->files())
            m_allFilesHashTable[file->path()] = file;
    for (const auto& file : m_unindexedFiles)
        m_allFilesHashTable[file->path()] = file;
    m_unindexedFiles.clear();
}

void CVDuplicatesController::eraseGroupLocked(const GroupPtr& group) {
    const auto it = std::find(m_duplicatesGroupsArray.begin(), m_duplicatesGroupsArray.end(), group);
    if (it == m_duplicatesGroupsArray.end())
        return;
    if (static_cast<std::size_t>(it - m_duplicatesGroupsArray.begin()) < m_indexedGroups)
        --m_indexedGroups;
    m_duplicatesGroupsArray.erase(it);
}

void CVDuplicatesController::addGroupsArray(const std::vector<GroupPtr>& groups) {
    for (const auto& group : groups)
        addGroup(group);
}

void CVDuplicatesController::addFiles(const std::vector<FilePtr>& files) {
    std::lock_guard lock(m_mutex);
    m_unindexedFiles.insert(m_unindexedFiles.end(), files.begin(), files.end());
}

void CVDuplicatesController::removeGroup(const GroupPtr& group) {
    std::lock_guard lock(m_mutex);
    indexLocked();
    for (const auto& child : group->children())
        m_allFilesHashTable.erase(child->path());
    eraseGroupLocked(group);
}

void CVDuplicatesController::removeGroupsLoud(const std::vector<GroupPtr>& groups) {
    for (const auto& group : groups) {
        {
            std::lock_guard lock(m_mutex);
            indexLocked();
            for (const auto& child : group->children())
                m_allFilesHashTable.erase(child->path());
        }
        m_notifier.willChangeValueForKey("duplicatesGroups");
        {
            std::lock_guard lock(m_mutex);
            eraseGroupLocked(group);
        }
        m_notifier.didChangeValueForKey("duplicatesGroups");
    }
    recalcMetaGroups();
}

void CVDuplicatesController::removeFileLocked(const FilePtr& file) {
    indexLocked();
    auto it = m_allFilesHashTable.find(file->path());
    if (it == m_allFilesHashTable.end())
        return;
    CVGroup* group = file->parentGroup();
    m_allFilesHashTable.erase(it);
    if (!group)
        return;
    group->removeFileSilently(file.get());
    group->setRemovedFilesCount(0);
    if (group->single()) {
        auto owned = std::find_if(m_duplicatesGroupsArray.begin(), m_duplicatesGroupsArray.end(),
                                  [group](const GroupPtr& g) { return g.get() == group; });
        if (owned != m_duplicatesGroupsArray.end()) {
            const GroupPtr keep = *owned;
            for (const auto& child : keep->children())
                m_allFilesHashTable.erase(child->path());
            eraseGroupLocked(keep);
        }
    }
}

void CVDuplicatesController::removeFile(const FilePtr& file) {
    std::lock_guard lock(m_mutex);
    removeFileLocked(file);
}

void CVDuplicatesController::removeFiles(const std::vector<FilePtr>& files) {
    m_notifier.willChangeValueForKey("count");
    m_notifier.willChangeValueForKey("allFiles");
    m_notifier.willChangeValueForKey("duplicatesGroups");
    {
        std::lock_guard lock(m_mutex);
        for (const auto& file : files)
            removeFileLocked(file);
    }
    m_notifier.didChangeValueForKey("duplicatesGroups");
    m_notifier.didChangeValueForKey("allFiles");
    m_notifier.didChangeValueForKey("count");
    recalcMetaGroups();
}

void CVDuplicatesController::removeDeletedFiles() {
    std::vector<FilePtr> removed;
    for (const auto& file : allFiles())
        if (file->wasRemoved())
            removed.push_back(file);
    removeFiles(removed);
}

void CVDuplicatesController::changeFilePath(const std::string& oldPath, const std::string& newPath) {
    std::lock_guard lock(m_mutex);
    indexLocked();
    auto it = m_allFilesHashTable.find(oldPath);
    if (it == m_allFilesHashTable.end())
        return;
    const FilePtr file = it->second;
    // Moved to a trash: a ".Trash" folder, or the freedesktop home trash.
    if (newPath.find(".Trash") != std::string::npos || newPath.starts_with(xdgDataHome() + "/Trash/")) {
        removeFileLocked(file);
        return;
    }
    file->setPath(newPath);
    m_allFilesHashTable[newPath] = file;
    m_allFilesHashTable.erase(oldPath);
}

std::uint64_t CVDuplicatesController::count() const {
    std::lock_guard lock(m_mutex);
    return m_mainMetaGroup->count();
}

std::uint64_t CVDuplicatesController::size() const {
    std::lock_guard lock(m_mutex);
    return m_mainMetaGroup->size();
}

std::vector<FilePtr> CVDuplicatesController::allFiles() const {
    std::lock_guard lock(m_mutex);
    indexLocked();
    std::vector<FilePtr> files;
    files.reserve(m_allFilesHashTable.size());
    for (const auto& [path, file] : m_allFilesHashTable)
        files.push_back(file);
    return files;
}

FilePtr CVDuplicatesController::fileAtPath(const std::string& path) const {
    std::lock_guard lock(m_mutex);
    indexLocked();
    auto it = m_allFilesHashTable.find(path);
    return it == m_allFilesHashTable.end() ? nullptr : it->second;
}

std::vector<GroupPtr> CVDuplicatesController::allDuplicatesGroups() const {
    std::lock_guard lock(m_mutex);
    return m_duplicatesGroupsArray;
}

std::vector<GroupPtr> CVDuplicatesController::filteredLocked() const {
    if (!m_compiledFilter)
        return m_duplicatesGroupsArray;
    std::vector<GroupPtr> out;
    for (const auto& group : m_duplicatesGroupsArray) {
        const auto files = group->files();
        if (std::any_of(files.begin(), files.end(),
                        [&](const FilePtr& f) { return m_compiledFilter->evaluate(NodeKeyValues(*f)); }))
            out.push_back(group);
    }
    return out;
}

std::vector<GroupPtr> CVDuplicatesController::duplicatesGroups() const {
    std::lock_guard lock(m_mutex);
    return filteredLocked();
}

std::vector<std::shared_ptr<CVMetaGroup>> CVDuplicatesController::metaGroups() const {
    std::lock_guard lock(m_mutex);
    return m_metaGroups;
}

std::shared_ptr<CVMetaGroup> CVDuplicatesController::mainMetaGroup() const {
    std::lock_guard lock(m_mutex);
    return m_mainMetaGroup;
}

void CVDuplicatesController::setFilterPredicate(const std::string& predicate) {
    m_notifier.willChangeValueForKey("duplicatesGroups");
    {
        std::lock_guard lock(m_mutex);
        m_filterPredicate = predicate;
        m_compiledFilter.reset();
        if (!predicate.empty()) {
            CVError error;
            m_compiledFilter = Predicate::parse(predicate, &error);
            if (!m_compiledFilter)
                systemLog("Ignoring the results filter: " + error.localizedDescription());
        }
    }
    recalcMetaGroups();
    m_notifier.didChangeValueForKey("duplicatesGroups");
}

void CVDuplicatesController::recalcMetaGroups() {
    m_notifier.willChangeValueForKey("metaGroups");
    {
        std::lock_guard lock(m_mutex);
        m_metaGroups.clear();
        m_mainMetaGroup = std::make_shared<CVMetaGroup>(kMetaGroupAll);
        m_metaGroups.push_back(m_mainMetaGroup);
        for (const auto& group : filteredLocked())
            addGroupToMetaGroupsLocked(group);
    }
    m_notifier.didChangeValueForKey("metaGroups");
}

std::string CVDuplicatesController::exportText(bool nulSeparated) const {
    std::lock_guard lock(m_mutex);
    std::string text;
    for (const auto& group : m_duplicatesGroupsArray) {
        bool contributed = false;
        for (const auto& file : group->files()) {
            if (file->needToRemove()) {
                text += file->path();
                text += nulSeparated ? '\0' : '\n';
                contributed = true;
            }
        }
        if (contributed && !nulSeparated)
            text += '\n';
    }
    return text;
}

std::size_t CVDuplicatesController::selectedPathsWithLineBreakCount() const {
    std::lock_guard lock(m_mutex);
    std::size_t count = 0;
    for (const auto& group : m_duplicatesGroupsArray)
        for (const auto& file : group->files())
            count += file->needToRemove() && file->path().find('\n') != std::string::npos ? 1 : 0;
    return count;
}

bool CVDuplicatesController::exportSelectedDupesToPath(const std::string& path, CVError* error,
                                                       bool nulSeparated) const {
    CVError failure;
    const std::size_t broken = nulSeparated ? 0 : selectedPathsWithLineBreakCount();
    if (broken > 0)
        failure =
            CVError(kPosixErrorDomain, EINVAL,
                    std::to_string(broken) + (broken == 1 ? " selected path holds" : " selected paths hold") +
                        " a line break, which a list of one path per line cannot keep, so " + path +
                        " was not written");
    const bool ok = broken == 0 && saveFile(path, exportText(nulSeparated), &failure);
    if (!ok) {
        systemLogf("Error saving list of selected dupes: %@", failure.localizedDescription());
        setError(error, failure);
    }
    NotificationCenter::defaultCenter().post("CVExportPanelDidClose");
    return ok;
}

} // namespace corvel
