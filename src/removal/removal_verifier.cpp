#include "removal_verifier.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

#include "engine/folder.h"
#include "engine/group.h"
#include "platform/file_dates.h"
#include "platform/file_io.h"
#include "platform/volumes.h"

namespace corvel {

namespace {

// Whether one path lies inside the other (or they are the same).
bool nested(const std::string& a, const std::string& b) {
    const std::string& shorter = a.size() <= b.size() ? a : b;
    const std::string& longer = a.size() <= b.size() ? b : a;
    return longer == shorter || (longer.starts_with(shorter) && longer[shorter.size()] == '/') ||
           shorter == "/";
}

} // namespace

RemovalVerifier::RemovalVerifier(ContentComparer::StopRequest stop) : m_comparer(std::move(stop)) {}

bool RemovalVerifier::isUnchangedSinceScan(const CVFile& file, std::string* reason,
                                           std::optional<ItemStatus>* seen) {
    auto fail = [&](const char* why) {
        if (reason)
            *reason = why;
        return false;
    };
    ItemStatus st;
    if (const int err = itemStatus(AT_FDCWD, file.path().c_str(), st))
        return fail(err == ENOENT ? "missing" : kReasonChanged);
    if (seen)
        *seen = st;
    const bool isFolder = dynamic_cast<const CVFolder*>(&file) != nullptr;
    if (isFolder ? st.type != S_IFDIR : (st.type == S_IFDIR || st.type == S_IFLNK))
        return fail(kReasonChanged);
    // A node no walk recorded (device 0) is never trusted.
    if (file.device() == 0 || st.device != file.device() || st.inode != file.inodeNumber())
        return fail(kReasonChanged);
    if (st.modificationTime != file.statMTimeNanoseconds())
        return fail(kReasonChanged);
    if (!isFolder && st.size != file.size())
        return fail(kReasonChanged);
    return true;
}

std::string RemovalVerifier::resolvedPlace(const std::string& path, ResolvedFolders* folders) {
    if (path.size() < 2)
        return path;
    const std::string name = lastPathComponent(path);
    const std::string given = parentPath(path);
    std::optional<std::string> folder;
    if (!folders) {
        folder = canonicalPath(given);
    } else {
        const auto [known, added] = folders->try_emplace(given);
        if (added)
            known->second = canonicalPath(given);
        folder = known->second;
    }
    if (!folder)
        return path;
    return (*folder == "/" ? std::string() : *folder) + "/" + name;
}

std::optional<std::string> RemovalVerifier::lostEntryReason(const std::set<std::string>& gone,
                                                            const std::string& folder) {
    const std::string inside = folder == "/" ? folder : folder + "/";
    std::optional<std::string> deeper;
    for (auto it = gone.lower_bound(inside); it != gone.end() && it->starts_with(inside); ++it) {
        if (parentPath(*it) == folder)
            return std::string(kReasonChanged);
        if (!deeper)
            deeper = "an item inside it goes earlier in this run (" + *it + ")";
    }
    return deeper;
}

bool RemovalVerifier::isThereAsScanned(const CVFile& file, std::string* reason,
                                       std::optional<ItemStatus>* seen) const {
    if (m_goneEarlier && !m_goneEarlier->empty()) {
        const std::string named = file.path();
        const bool isFolder = dynamic_cast<const CVFolder*>(&file) != nullptr;
        // A real run finds a removed item missing on disk; a dry run looks it up, by the
        // path as named and by the place it leads to (a kept copy named through a linked
        // folder is gone once the item it leads to is).
        std::vector<std::string> places{named};
        if (m_dryRun)
            places.push_back(resolvedPlace(named, &m_resolvedFolders));
        for (const std::string& start : places) {
            for (std::string path = start; m_dryRun && path.size() > 1; path = parentPath(path))
                if (m_goneEarlier->contains(path)) {
                    *reason = "missing";
                    return false;
                }
            if (auto lost = isFolder ? lostEntryReason(*m_goneEarlier, start) : std::nullopt) {
                *reason = std::move(*lost);
                return false;
            }
        }
    }
    return isUnchangedSinceScan(file, reason, seen);
}

bool RemovalVerifier::liesInTrash(const std::string& path) {
    if (liesInTrashFolder(path, m_homeTrash))
        return true;
    // The folder with its links resolved, once per folder (a pass keeps many copies in one).
    const std::string folder = parentPath(path);
    const auto [known, added] = m_folderInTrash.try_emplace(folder, false);
    if (added)
        if (const auto resolved = canonicalPath(folder))
            known->second = liesInTrashFolder(*resolved + "/" + lastPathComponent(path), m_homeTrash);
    return known->second;
}

RemovalCheck RemovalVerifier::checkBeforeRemoval(const CVFile& copy, bool permanently) {
    RemovalCheck check;
    const std::string copyPath = copy.path();
    std::optional<ItemStatus> copyStatus;
    const bool there = isThereAsScanned(copy, &check.reason, &copyStatus);
    if (copyStatus && isMountRoot(copyPath, *copyStatus)) {
        // Neither moved nor deleted: emptying it would remove what is mounted there.
        check.reason = kReasonMountPoint;
        return check;
    }
    if (!there)
        return check;
    const ItemIdentity copyIdentity{copy.device(), copy.inodeNumber()};
    CVGroup* group = copy.parentGroup();
    // The members that stay and still are what the scan saw; the first that stays but
    // cannot serve is named when no kept copy is found.
    struct Kept {
        std::shared_ptr<CVFile> member;
        ItemStatus status; // as its check took it, for the comparison
    };
    std::vector<Kept> kept;
    std::string unusable;
    if (group)
        for (const auto& member : group->files()) {
            if (member.get() == &copy || member->needToRemove() || member->wasRemoved())
                continue;
            std::string why;
            std::optional<ItemStatus> seen;
            if (liesInTrash(member->path()))
                why = "lies in the Trash";
            else if (isThereAsScanned(*member, &why, &seen))
                kept.push_back({member, *seen});
            if (!why.empty() && unusable.empty())
                unusable = member->path() + ": " + why;
        }
    for (const Kept& candidate : kept)
        if (ItemIdentity{candidate.member->device(), candidate.member->inodeNumber()} == copyIdentity) {
            check.reason = kReasonHardLink;
            return check;
        }
    std::string difference;
    std::string uncertainty;
    bool firstComparison = true;
    for (const auto& [member, keptStatus] : kept) {
        const std::string keptPath = member->path();
        if (nested(keptPath, copyPath)) {
            if (unusable.empty())
                unusable = keptPath + ": " +
                           (keptPath.size() < copyPath.size() ? "holds the copy" : "lies inside the copy");
            continue;
        }
        // The statuses the checks above took are handed to the first comparison, which
        // follows them at once; a later one looks again at what the paths lead to by then.
        const bool fresh = std::exchange(firstComparison, false);
        const ContentComparison comparison =
            m_comparer.compareTrees(copyPath, keptPath, permanently ? &check.compared : nullptr,
                                    fresh ? &*copyStatus : nullptr, fresh ? &keptStatus : nullptr);
        // The paths may have led elsewhere by the time they were compared (a folder of
        // one swapped for a link meanwhile): then what was compared says nothing of them.
        if (comparison.deviceA != 0 && ItemIdentity{comparison.deviceA, comparison.inodeA} != copyIdentity) {
            check.compared.clear();
            check.reason = kReasonChanged;
            return check;
        }
        if (comparison.deviceB != 0 && ItemIdentity{comparison.deviceB, comparison.inodeB} !=
                                           ItemIdentity{member->device(), member->inodeNumber()}) {
            if (unusable.empty())
                unusable = keptPath + ": " + kReasonChanged;
            continue;
        }
        if (comparison.isEqual() && !comparison.sameFile) {
            check.ok = true;
            check.keptCopy = keptPath;
            check.kept = member;
            return check;
        }
        if (comparison.outcome == ContentComparison::Stopped) {
            check.reason = kReasonStopped;
            return check;
        }
        (comparison.outcome == ContentComparison::Different ? difference : uncertainty) = comparison.message;
    }
    check.compared.clear(); // no copy to go by
    if (!difference.empty()) {
        check.reason = std::string(kReasonDiffers) + " (" + difference + ")";
    } else if (!uncertainty.empty()) {
        check.reason = "cannot compare with the kept copy (" + uncertainty + ")";
    } else if (group && group->userForcedAllCopies()) {
        if (permanently)
            check.reason = kReasonAllCopiesPermanently;
        else
            check.ok = true;
    } else {
        check.reason = kReasonNoKeptCopy;
        if (!unusable.empty())
            check.reason += " (" + unusable + ")";
    }
    return check;
}

} // namespace corvel
