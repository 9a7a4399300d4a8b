#include "removal_pass.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "achievements_controller.h"
#include "compared_tree_removal.h"
#include "engine/file_sizer.h"
#include "engine/folder.h"
#include "engine/node_type.h"
#include "library_app_driver.h"
#include "platform/file_access.h"
#include "platform/file_dates.h"
#include "platform/file_io.h"
#include "platform/main_queue.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "platform/tracker.h"
#include "platform/trash.h"
#include "platform/unique_fd.h"
#include "platform/user_defaults.h"
#include "platform/volumes.h"
#include "removal_view.h"
#include "results/duplicates_controller.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "statistics_controller.h"

namespace corvel {

namespace {

// Whether the path (absolute, or a walked node's name) names a leftover.
bool namesLeftover(std::string_view path) {
    return path.ends_with(kCleanUpLeftoverName) &&
           (path.size() == kCleanUpLeftoverName.size() ||
            path[path.size() - kCleanUpLeftoverName.size() - 1] == '/');
}

constexpr std::uint64_t kTicks = 20;
constexpr auto kMinimumTickInterval = std::chrono::milliseconds(200);
constexpr auto kClosingPause = std::chrono::milliseconds(500);
// A window of copies moved to the Trash together is checked within this time (and holds at
// most Options::windowCopies copies, from at most kWindowFolders folders: each folder keeps
// four descriptors open while its window lives, and two windows live at once).
constexpr auto kWindowTime = std::chrono::milliseconds(250);
constexpr std::size_t kWindowFolders = 64;

std::string humanDuration(std::chrono::system_clock::duration elapsed) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    if (seconds < 60)
        return formatf("%ld s", static_cast<long>(seconds));
    return formatf("%ld min %ld s", static_cast<long>(seconds / 60), static_cast<long>(seconds % 60));
}

// Whether the version string compares lower than the other, number by number ("9.2.1" < "9.3").
bool versionIsLower(const std::string& version, const std::string& than) {
    std::size_t a = 0;
    std::size_t b = 0;
    while (a < version.size() || b < than.size()) {
        long x = 0;
        long y = 0;
        while (a < version.size() && version[a] != '.')
            x = x * 10 + (std::isdigit(static_cast<unsigned char>(version[a])) ? version[a] - '0' : 0), ++a;
        while (b < than.size() && than[b] != '.')
            y = y * 10 + (std::isdigit(static_cast<unsigned char>(than[b])) ? than[b] - '0' : 0), ++b;
        if (x != y)
            return x < y;
        ++a;
        ++b;
    }
    return false;
}

} // namespace

const char* CVRemovalPass::outcomeName(Outcome outcome) {
    switch (outcome) {
    case Outcome::Trashed:
        return "trashed";
    case Outcome::Deleted:
        return "deleted";
    case Outcome::Failed:
        return "failed";
    case Outcome::NotHandled:
        return "notHandled";
    case Outcome::WouldTrash:
        return "wouldTrash";
    case Outcome::WouldDelete:
        return "wouldDelete";
    case Outcome::WouldFail:
        return "wouldFail";
    }
    return "notHandled";
}

CVRemovalPass::CVRemovalPass(Services services, Options options)
    : m_services(services), m_options(std::move(options)),
      m_verifier([this] { return !m_shredInProgress.load(); }),
      m_windowVerifier([this] { return !m_shredInProgress.load(); }),
      m_protectedFolders(services.ignoreList.protectedFolders()),
      m_protectedIdentities(services.ignoreList.protectedFolderIdentities()) {
    m_verifier.setTrashEnvironment(services.trash.environment());
    m_windowVerifier.setTrashEnvironment(services.trash.environment());
    countDuplicates();
    for (const auto& group : m_services.results.allDuplicatesGroups())
        for (const auto& file : group->files())
            if (namesLeftover(file->storedPath()))
                m_groupedLeftovers.insert(file->path());
}

bool CVRemovalPass::takesProtectedFolder(const std::string& path) const {
    if (CVIgnoreList::coversProtectedFolder(canonicalPath(path).value_or(path), m_protectedFolders))
        return true;
    // The same folders reached by another path (a bind mount of home, say).
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) &&
           CVIgnoreList::isProtectedIdentity(
               {static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)},
               m_protectedIdentities);
}

CVRemovalPass::~CVRemovalPass() {
    requestStop();
    // The pass's thread may be waiting for the main thread: on it, run the queue until the
    // pass has ended (after its current copy).
    if (MainQueue::shared().isMainThread())
        while (m_threadRunning.load())
            MainQueue::shared().runUntil([this] { return !m_threadRunning.load(); }, std::chrono::seconds(1));
    if (m_thread.joinable())
        m_thread.join();
}

bool CVRemovalPass::moveToTrash() const {
    return m_options.moveToTrash.value_or(m_services.preferences.moveDuplicatesToTrash());
}

bool CVRemovalPass::removeEmptyFolders() const {
    return m_options.removeEmptyFolders.value_or(m_services.preferences.removeEmptyFolders());
}

CVRemovalPass::MarkedFiles CVRemovalPass::markedFiles() const {
    std::vector<std::pair<std::shared_ptr<CVFile>, std::size_t>> marked;
    const auto groups = m_services.results.allDuplicatesGroups();
    for (std::size_t g = 0; g < groups.size(); ++g)
        for (const auto& file : groups[g]->files())
            if (file->needToRemove() && !file->wasRemoved())
                marked.emplace_back(file, g);
    return marked;
}

void CVRemovalPass::countDuplicates() {
    m_count = 0;
    m_size = 0;
    for (const auto& [file, group] : markedFiles()) {
        ++m_count;
        m_size += file->sizeOnDisk();
    }
}

void CVRemovalPass::runOnMain(const std::function<void()>& work, bool wait) {
    // On the main thread both run at once, so the counters change before the end of the
    // pass reads them, as they do when the pass has its own thread.
    if (wait)
        MainQueue::shared().postAndWait(work);
    else
        MainQueue::shared().deliver(work);
}

void CVRemovalPass::shreddList() {
    sharedTracker().trackEvent("Deletion Summary", "Remove", "", 0);
    // Stop comes first: a pass whose copies are all handled is still running, and ends
    // (once) on its own thread.
    if (m_shredInProgress) {
        requestStop();
        m_services.view.setRemoveButton(localized("ButtonTitle_Remove", "Buttons"),
                                        localized("ButtonToolTip_Remove", "Buttons"));
        return;
    }
    countDuplicates();
    if (m_count == 0) {
        removeFinishedWithSize(0, 0, false, false);
        return;
    }
    m_services.view.setCloseButtonEnabled(false);
    m_services.view.setWindowState(9);
    m_services.view.setRemoveButton(localized("ButtonTitle_Stop", "Buttons"),
                                    localized("ButtonToolTip_AbortShredding", "Buttons"));
    startPass();
}

void CVRemovalPass::startPass() {
    waitForPass();
    m_shredInProgress = true;
    m_threadRunning = true;
    m_thread = std::thread([this] {
        cleanDuplicates();
        m_threadRunning = false;
        MainQueue::shared().post([] {}); // wakes a main loop waiting for the end
    });
}

void CVRemovalPass::waitForPass() {
    if (m_thread.joinable())
        m_thread.join();
}

void CVRemovalPass::cleanDuplicates() {
    // On the pass's own thread the flag was set by startPass, and a stop requested since
    // must not be undone.
    if (!m_threadRunning.load())
        m_shredInProgress = true;
    const auto marked = markedFiles();
    beginPass(marked);
    std::uint64_t completedGroups = 0;
    removeMarkedFiles(marked, completedGroups);
    endPass(marked.size(), completedGroups);
}

void CVRemovalPass::beginPass(const MarkedFiles& marked) {
    m_finished = false;
    m_records.clear();
    m_removedFolders.clear();
    m_gone.clear();
    m_resolvedFolders.clear();
    m_folderAccess.clear();
    // Its checks learn what went earlier in the pass (a dry run: what would have gone).
    m_verifier.setGoneEarlier(&m_gone, m_options.dryRun);
    m_lookups.reset();
    m_cleanStartDate = std::chrono::system_clock::now();
    const std::uint64_t total = marked.size();
    std::uint64_t markedSize = 0;
    for (const auto& entry : marked)
        markedSize += entry.first->sizeOnDisk();
    m_markedAtStart = total;
    m_markedSizeAtStart = markedSize;
    systemLogf("Removing started. Files count = %lu Size to Clean = %llu", total, markedSize);
    runOnMain(
        [this] {
            sharedTracker().trackEvent("Cleanup", "Cleanup Started", "", 0);
            m_services.view.startShredderAnimation();
        },
        true);
    m_step = total >= kTicks ? total / kTicks : 1;
    m_countdown = m_step;
    m_handled = 0;
    runOnMain(
        [this] {
            m_failedFiles.clear();
            m_errorFilesCount = 0;
            m_failedSize = 0;
        },
        true);
    m_iPhotoWasLaunched = false;
    m_iTunesWasLaunched = false;
    m_removedSize = 0;
    m_removedFiles = 0;
    m_records.reserve(marked.size());
    for (const auto& [file, group] : marked) {
        FileRecord record;
        record.file = file;
        record.group = group;
        m_records.push_back(std::move(record));
    }
}

struct CVRemovalPass::TrashWindow {
    struct Entry {
        std::size_t index = 0;
        std::string path;
        ItemIdentity identity;             // the copy's, as the scan recorded it
        std::optional<std::size_t> ticket; // claimed in the batch; else failure says why not
        CVError failure;
        RemovalCheck check;   // what the copy was compared with
        UniqueFd unlocked;    // an immutable copy unlocked for its move, open to lock it again
        bool handled = false; // moved, or failed and reported: nothing left to undo
    };
    std::size_t begin = 0; // marked[begin, end) were looked at
    std::size_t end = 0;
    std::vector<Entry> entries;
    std::unique_ptr<TrashBatch> batch;

    TrashWindow() = default;
    TrashWindow(const TrashWindow&) = delete;
    TrashWindow& operator=(const TrashWindow&) = delete;
    // The claims of copies never moved are undone (their information files removed),
    // then those copies are locked again.
    ~TrashWindow() {
        batch.reset();
        for (Entry& entry : entries)
            if (entry.unlocked.valid() && !entry.handled)
                lockAgain(entry.unlocked, entry.path);
    }
};

void CVRemovalPass::removeMarkedFiles(const MarkedFiles& marked, std::uint64_t& completedGroups) {
    const bool toTrash = moveToTrash();
    auto lastTick = std::chrono::steady_clock::now();
    // Plain copies going to the Trash are moved in windows whose information files are
    // made durable together, the next window being prepared while one is moved;
    // everything else goes one copy at a time. The worker ends before this returns (the
    // future waits for it), and a window prepared but never moved undoes its claims.
    const bool inWindows = toTrash && !m_options.dryRun;
    std::future<std::unique_ptr<TrashWindow>> ahead;
    for (std::size_t i = 0; i < marked.size();) {
        if (!m_shredInProgress)
            break;
        const auto& file = marked[i].first;
        if (!file->needToRemove()) {
            ++i;
            continue;
        }
        if (inWindows && goesToTrashDirectly(*file)) {
            // The window prepared ahead serves when it starts with this copy; else it is
            // undone before this copy is claimed again.
            std::unique_ptr<TrashWindow> window = ahead.valid() ? ahead.get() : nullptr;
            if (!window || window->begin > i || window->entries.empty() ||
                window->entries.front().index != i) {
                window.reset();
                window = prepareWindow(marked, i);
            }
            if (window->end < marked.size() && m_shredInProgress) {
                try {
                    ahead = std::async(std::launch::async, [this, &marked, from = window->end] {
                        return prepareWindow(marked, from);
                    });
                } catch (const std::system_error& error) {
                    // No thread to be had: the next window is prepared when it is reached.
                    systemLogf("Could not prepare the next removal window ahead = %@",
                               std::string(error.what()));
                }
            }
            if (!moveWindow(*window, marked, lastTick, completedGroups))
                break;
            i = window->end;
            continue;
        }
        m_current = &m_records[i];
        CVError error;
        const bool ok = shredDuplicateFile(*file, toTrash, &error);
        if (!ok && stoppedDuringCheck(error))
            break; // it stays marked and in the collector
        report(file, ok, error, toTrash);
        flushReports();
        settle(*file, ok, completedGroups, lastTick);
        ++i;
    }
    if (ahead.valid())
        ahead.get(); // a window never moved: its claims are undone as it goes
    flushReports();
}

void CVRemovalPass::endPass(std::uint64_t total, std::uint64_t completedGroups) {
    m_current = nullptr;
    m_lookups.reset();
    const bool stoppedByUser = !m_shredInProgress;
    if (!stoppedByUser) {
        runOnMain([this] { m_services.view.closeShredderAnimation(); }, true);
        if (m_options.tickPacing)
            std::this_thread::sleep_for(kClosingPause);
    }
    const std::uint64_t removedSize = m_removedSize;
    const std::uint64_t removedFiles = m_removedFiles;
    const bool complete = completedGroups == m_services.results.allDuplicatesGroups().size();
    runOnMain(
        [this, total, removedSize, removedFiles, complete, stoppedByUser] {
            m_services.view.setWindowState(m_shredInProgress ? 10 : 8);
            const std::string summary = formatf(
                "%@ / Total Deleted Size: %ld MB, Time Elapsed: %@, Total Deleted Items: %ld Duplicates",
                std::string(stoppedByUser ? "Cleanup Interrupted" : "Cleanup Completed"),
                static_cast<long>(removedSize / 1000000),
                humanDuration(std::chrono::system_clock::now() -
                              m_cleanStartDate.value_or(std::chrono::system_clock::now())),
                static_cast<long>(removedFiles));
            sharedTracker().trackEvent("Cleanup", summary, "", 0);
            m_cleanStartDate.reset();
            removeFinishedWithSize(removedSize, total, complete, stoppedByUser);
        },
        true);
    CVError saveError;
    if (!m_options.dryRun && !m_services.defaults.synchronize(&saveError))
        systemLogf("Could not save the preferences = %@", saveError.localizedDescription());
}

UniqueFd CVRemovalPass::unlockForRemoval(const std::string& path, const ItemIdentity& identity) {
    UniqueFd copy = openForFlagChange(path, identity, nullptr);
    if (copy.valid() && !setImmutable(copy.get(), path, false, nullptr))
        copy.reset();
    return copy;
}

void CVRemovalPass::lockAgain(UniqueFd& copy, const std::string& path) {
    CVError error;
    const bool locked = setImmutable(copy.get(), path, true, &error);
    copy.reset();
    if (!locked)
        systemLogf("Could not make %@ immutable again = %@", path, error.localizedDescription());
}

bool CVRemovalPass::stoppedDuringCheck(const CVError& error) const {
    return !m_shredInProgress && error.domain == kRemovalCheckErrorDomain &&
           error.localizedDescription() == kReasonStopped;
}

bool CVRemovalPass::goesToTrashDirectly(const CVFile& file) const {
    const auto root = file.rootFolder();
    const NodeType rootType = root ? root->type() : kNodeTypeUnknown;
    return rootType != kNodeTypeCurrentIPhotoLibrary && rootType != kNodeTypeCurrentITunesLibrary;
}

std::unique_ptr<CVRemovalPass::TrashWindow> CVRemovalPass::prepareWindow(const MarkedFiles& marked,
                                                                         std::size_t from) {
    auto window = std::make_unique<TrashWindow>();
    window->begin = from;
    window->batch = std::make_unique<TrashBatch>(m_services.trash);
    const auto started = std::chrono::steady_clock::now();
    std::size_t i = from;
    // Bounded, so progress and Stop stay prompt; a window holds at least one copy.
    for (; i < marked.size(); ++i) {
        if (!window->entries.empty() && (window->entries.size() >= m_options.windowCopies ||
                                         window->batch->folderCount() >= kWindowFolders ||
                                         std::chrono::steady_clock::now() - started >= kWindowTime))
            break;
        CVFile& file = *marked[i].first;
        if (!file.needToRemove())
            continue;
        if (!goesToTrashDirectly(file) || !m_shredInProgress)
            break;
        TrashWindow::Entry entry;
        entry.index = i;
        entry.path = file.path();
        entry.identity = {file.device(), file.inodeNumber()};
        if (checkCopy(file, false, m_windowVerifier, &entry.check, &entry.failure)) {
            // Read now, not from the checks' status: a long comparison leaves the user time
            // to lock or unlock the copy, and a copy the user unlocked is not locked again.
            if (isImmutable(entry.path).value_or(false))
                entry.unlocked = unlockForRemoval(entry.path, entry.identity);
            entry.ticket = window->batch->add(entry.path, identityOf(file), &entry.failure);
            if (!entry.ticket && entry.unlocked.valid())
                lockAgain(entry.unlocked, entry.path);
        } else if (stoppedDuringCheck(entry.failure)) {
            break;
        }
        window->entries.push_back(std::move(entry));
    }
    window->end = i;
    return window;
}

bool CVRemovalPass::moveWindow(TrashWindow& window, const MarkedFiles& marked,
                               std::chrono::steady_clock::time_point& lastTick,
                               std::uint64_t& completedGroups) {
    CVError syncError;
    const bool anyClaimed = std::any_of(window.entries.begin(), window.entries.end(),
                                        [](const TrashWindow::Entry& e) { return e.ticket; });
    const bool synced = !anyClaimed || window.batch->sync(&syncError);
    // The moves, in order; a stop leaves the rest where they are and marked (the window
    // undoes their claims and locks them again as it goes).
    for (TrashWindow::Entry& entry : window.entries) {
        if (!m_shredInProgress) {
            flushReports();
            return false;
        }
        const auto& file = marked[entry.index].first;
        if (!file->needToRemove()) { // unmarked since its window was prepared: left alone
            if (entry.ticket)
                window.batch->drop(*entry.ticket);
            if (entry.unlocked.valid())
                lockAgain(entry.unlocked, entry.path);
            entry.handled = true;
            continue;
        }
        m_current = &m_records[entry.index];
        m_current->keptCopy = entry.check.keptCopy;
        bool ok = false;
        CVError error = entry.failure;
        if (entry.ticket && !synced) {
            error = syncError;
        } else if (std::string why;
                   entry.ticket && entry.check.kept && !keptCopyRemains(*entry.check.kept, &why)) {
            window.batch->drop(*entry.ticket);
            m_current->keptCopy.clear();
            error = checkError(std::string(kReasonNoKeptCopy) + " (" + why + ")");
        } else if (auto lost = entry.ticket && dynamic_cast<const CVFolder*>(file.get())
                                   ? RemovalVerifier::lostEntryReason(m_gone, entry.path)
                                   : std::nullopt) {
            // A folder copy checked before an item inside it went (earlier in this window
            // or the one before) is no longer what its check compared.
            window.batch->drop(*entry.ticket);
            error = checkError(*lost);
        } else if (entry.ticket) {
            TrashedItem trashed;
            ok = window.batch->commit(*entry.ticket, &trashed, &error);
            if (ok) {
                m_current->trashFile = trashed.trashFile;
                m_current->trashInfo = trashed.trashInfo;
                countAsGone(entry.path);
                if (removeEmptyFolders())
                    removeParentFolderIfEmpty(entry.path, true,
                                              FolderIdentity{trashed.folderDevice, trashed.folderInode});
            }
        }
        if (!ok && entry.unlocked.valid())
            lockAgain(entry.unlocked, entry.path);
        entry.unlocked.reset();
        entry.handled = true;
        report(file, ok, error, true);
        settle(*file, ok, completedGroups, lastTick);
    }
    flushReports();
    return true;
}

std::string CVRemovalPass::failureText(const CVError& error) {
    std::string text = error.localizedDescription();
    // Why a volume has no Trash (read-only, a Trash folder that may not be made): the
    // user may fix that rather than delete.
    if (const auto why = error.userInfo.find(kTrashReasonKey);
        error.domain == kTrashErrorDomain && why != error.userInfo.end() && why->second.isString())
        text += " (" + *why->second.asString() + ")";
    return text;
}

void CVRemovalPass::report(const std::shared_ptr<CVFile>& file, bool ok, const CVError& error, bool toTrash) {
    const std::uint64_t fileSize = file->sizeOnDisk();
    const std::string path = file->path();
    FileRecord& record = *m_current;
    if (m_options.dryRun) {
        if (!ok) {
            record.outcome = Outcome::WouldFail;
            record.error = failureText(error);
        }
        return;
    }
    if (ok) {
        record.outcome = toTrash ? Outcome::Trashed : Outcome::Deleted;
        m_removedSize += fileSize;
        ++m_removedFiles;
        systemLogf("Successfully removed file%@ %@ size = %llu type = %@",
                   std::string(toTrash ? " to Trash" : ""), path, file->size(),
                   std::string(CVFile::stringSelectionType(file->selectionType())));
    } else {
        record.outcome = Outcome::Failed;
        record.error = failureText(error);
        // Only where deleting it could succeed: not on a read-only volume.
        record.noTrashOnVolume = error.domain == kTrashErrorDomain &&
                                 error.code == kTrashErrorNoTrashOnVolume && removalRefusal(path) == 0;
        systemLogf("Failed to remove file %@ = %@ size = %llu type = %@", path, record.error, file->size(),
                   std::string(CVFile::stringSelectionType(file->selectionType())));
    }
    m_unreported.push_back(Handled{file, ok, record.error});
}

void CVRemovalPass::flushReports() {
    if (!m_unreported.empty())
        runOnMain(
            [this, handled = std::move(m_unreported)] {
                for (const Handled& copy : handled) {
                    const std::uint64_t fileSize = copy.file->sizeOnDisk();
                    m_size = m_size >= fileSize ? m_size - fileSize : 0;
                    if (m_count > 0)
                        --m_count;
                    if (!copy.ok) {
                        ++m_errorFilesCount;
                        m_failedFiles.push_back(copy.file);
                        m_failedSize += fileSize;
                    }
                    m_services.view.fileHandled(*copy.file, copy.ok, copy.reason);
                }
            },
            false);
    m_unreported.clear();
    // Then the groups' counts as they stand now (a run of copies of one group asks once).
    for (CVGroup* group : m_unmanifested)
        group->manifest();
    m_unmanifested.clear();
}

void CVRemovalPass::settle(CVFile& file, bool removed, std::uint64_t& completedGroups,
                           std::chrono::steady_clock::time_point& lastTick) {
    // A copy the pass could not remove is still on the disk: it stays in its group and
    // marked, so the results go on showing it (the list of failures says why).
    if (removed && !m_options.dryRun) {
        file.setWasRemoved(true);
        if (CVGroup* owner = file.parentGroup()) {
            owner->setSilentFilesToRemoveCount(owner->silentFilesToRemoveCount() - 1);
            if (m_unmanifested.empty() || m_unmanifested.back() != owner)
                m_unmanifested.push_back(owner);
            owner->setRemovedFilesCount(owner->removedFilesCount() + 1);
            if (owner->childrenCount() == owner->removedFilesCount() + 1)
                ++completedGroups;
        }
    }
    ++m_handled;
    tick(lastTick);
}

void CVRemovalPass::tick(std::chrono::steady_clock::time_point& lastTick) {
    if (m_countdown > 1) {
        --m_countdown;
        return;
    }
    flushReports();
    const std::uint64_t handled = m_handled;
    const std::uint64_t total = m_markedAtStart;
    runOnMain([this, handled, total] { m_services.view.advanceShredderAnimation(handled, total); }, true);
    if (m_options.tickPacing) {
        const auto due = lastTick + kMinimumTickInterval;
        if (std::chrono::steady_clock::now() < due)
            std::this_thread::sleep_until(due);
    }
    lastTick = std::chrono::steady_clock::now();
    m_countdown = m_step;
}

CVError CVRemovalPass::checkError(const std::string& reason) const {
    return CVError(kRemovalCheckErrorDomain, 1, reason);
}

bool CVRemovalPass::checkCopy(CVFile& file, bool permanently, RemovalVerifier& verifier, RemovalCheck* check,
                              CVError* error) {
    if (file.removeForbidden()) {
        setError(error, checkError("it may not be removed"));
        return false;
    }
    if (file.storedPath().find('\0') != std::string_view::npos) {
        // Every system call would stop at the NUL and act on another path.
        setError(error, checkError("its path holds a NUL byte"));
        return false;
    }
    if (dynamic_cast<const CVFolder*>(&file) && takesProtectedFolder(file.path())) {
        setError(error, checkError(kReasonProtectedFolder));
        return false;
    }
    RemovalCheck checked = verifier.checkBeforeRemoval(file, permanently);
    const bool ok = checked.ok;
    if (!ok)
        setError(error, checkError(checked.reason));
    if (check)
        *check = std::move(checked);
    return ok;
}

bool CVRemovalPass::keptCopyRemains(const CVFile& kept, std::string* why) const {
    std::string reason;
    if (kept.needToRemove() || kept.wasRemoved())
        reason = "chosen for removal too";
    else if (auto lost = dynamic_cast<const CVFolder*>(&kept)
                             ? RemovalVerifier::lostEntryReason(m_gone, kept.path())
                             : std::nullopt)
        reason = std::move(*lost); // its top looks as scanned, its content does not
    else if (RemovalVerifier::isUnchangedSinceScan(kept, &reason))
        return true;
    *why = kept.path() + ": " + reason;
    return false;
}

TrashItemIdentity CVRemovalPass::identityOf(const CVFile& file) {
    TrashItemIdentity identity{file.device(), file.inodeNumber(), std::nullopt, file.statMTimeNanoseconds(),
                               std::nullopt};
    if (dynamic_cast<const CVFolder*>(&file) == nullptr)
        identity.size = file.size();
    return identity;
}

bool CVRemovalPass::shredDuplicateFile(CVFile& file, bool toTrash, CVError* error) {
    // Nothing is touched before the copy passes its checks.
    RemovalCheck check;
    const bool checked = checkCopy(file, !toTrash, m_verifier, &check, error);
    if (m_current)
        m_current->keptCopy = check.keptCopy;
    if (!checked)
        return false;
    const auto root = file.rootFolder();
    const NodeType rootType = root ? root->type() : kNodeTypeUnknown;
    if (rootType == kNodeTypeCurrentIPhotoLibrary) {
        if (m_options.dryRun) {
            setError(error, CVError(kIPhotoLaunchErrorDomain, kLibraryLaunchErrorCode,
                                    "the photo library application cannot be started"));
            return false;
        }
        if (auto failure = shrediPhotoDup(file)) {
            setError(error, *failure);
            return false;
        }
        return true;
    }
    if (rootType == kNodeTypeCurrentITunesLibrary) {
        if (m_options.dryRun) {
            setError(error, CVError(kITunesLaunchErrorDomain, kLibraryLaunchErrorCode,
                                    "the music library application cannot be started"));
            return false;
        }
        if (auto failure = shrediTunesDup(file)) {
            setError(error, *failure);
            return false;
        }
    }
    return shredPhysicallyDup(file, toTrash, error, &check.compared);
}

bool CVRemovalPass::shredPhysicallyDup(CVFile& file, bool toTrash, CVError* error,
                                       const std::vector<ComparedEntry>* compared) {
    const std::string path = file.path();
    if (m_options.dryRun) {
        bool ok = true;
        // What the move or the unlink would meet in the copy's folder: a read-only
        // volume, a folder the user may not change. A failed look-up of the Trash comes
        // first, as in the real run.
        const auto refuse = [&](int refusal) {
            setError(error, toTrash ? CVError(kPosixErrorDomain, refusal, std::strerror(refusal))
                                    : posixError(refusal, path, "remove"));
            ok = false;
        };
        const auto refusalOf = [&] {
            const std::string folder = parentPath(path);
            auto known = m_folderAccess.find(folder);
            if (known == m_folderAccess.end())
                known = m_folderAccess.emplace(folder, folderRemovalAccess(folder)).first;
            return removalRefusal(path, known->second);
        };
        if (toTrash) {
            CVError trashError;
            if (!m_lookups)
                m_lookups = std::make_unique<TrashBatch>(m_services.trash);
            const auto directory = m_lookups->trashDirectoryFor(path, &trashError);
            if (!directory) {
                setError(error, trashError);
                ok = false;
            } else if (const int refusal = refusalOf(); refusal != 0) {
                refuse(refusal);
            } else if (const int moving = dynamic_cast<const CVFolder*>(&file) ? folderMoveRefusal(path) : 0;
                       moving != 0) {
                refuse(moving);
            } else if (m_current) {
                m_current->outcome = Outcome::WouldTrash;
                m_current->trashDirectory = *directory;
            }
        } else if (const int refusal = refusalOf(); refusal != 0) {
            refuse(refusal);
        } else if (const auto inside = compared && compared->size() > 1 ? comparedTreeRefusal(path, *compared)
                                                                        : std::nullopt) {
            // A folder copy goes entry by entry, and none of them is unlocked.
            setError(error, posixError(inside->error, inside->path, "remove"));
            ok = false;
        } else if (m_current) {
            m_current->outcome = Outcome::WouldDelete;
        }
        if (ok)
            countAsGone(path);
        if (removeEmptyFolders())
            noteParentFolderIfEmpty(path);
        return ok;
    }
    // A file copy deleted permanently must still be as compared, its change time included;
    // removeItemAtPath checks that just before the unlink. Unlocking a locked copy gives it a
    // new change time, so a locked copy is checked before and its time taken again after (a
    // locked file cannot have been written meanwhile).
    std::vector<ComparedEntry> asCompared;
    if (!toTrash && compared && compared->size() == 1 && compared->front().type == S_IFREG)
        asCompared = *compared;
    const bool locked = isImmutable(path).value_or(false);
    struct stat st {};
    if (locked && !asCompared.empty() &&
        (::lstat(path.c_str(), &st) != 0 || !isAsCompared(st, asCompared.front()))) {
        setError(error, checkError(kReasonChanged));
        return false;
    }
    // A locked item is unlocked for its removal, and locked again when the removal fails.
    UniqueFd unlocked = locked ? unlockForRemoval(path, {file.device(), file.inodeNumber()}) : UniqueFd();
    if (unlocked.valid() && !asCompared.empty() && ::lstat(path.c_str(), &st) == 0)
        asCompared.front().changeTime = nanosecondsSince1970(st.st_ctim);
    CVError removeError;
    FolderIdentity removedFrom;
    const bool ok = removeItemAtPath(path, toTrash, &removeError, asCompared.empty() ? compared : &asCompared,
                                     &removedFrom);
    if (!ok) {
        if (unlocked.valid())
            lockAgain(unlocked, path);
        setError(error, removeError);
        return false;
    }
    countAsGone(path);
    if (removeEmptyFolders())
        removeParentFolderIfEmpty(path, toTrash, removedFrom);
    return true;
}

bool CVRemovalPass::removeItemAtPath(const std::string& path, bool toTrash, CVError* error,
                                     const std::vector<ComparedEntry>* compared,
                                     FolderIdentity* removedFrom) {
    if (toTrash) {
        TrashedItem trashed;
        std::optional<TrashItemIdentity> expected;
        if (m_current && m_current->file && m_current->file->path() == path)
            expected = identityOf(*m_current->file);
        if (!m_services.trash.moveToTrash(path, &trashed, error, expected))
            return false;
        if (m_current && m_current->file && m_current->file->path() == path) {
            m_current->trashFile = trashed.trashFile;
            m_current->trashInfo = trashed.trashInfo;
        }
        if (removedFrom)
            *removedFrom = {trashed.folderDevice, trashed.folderInode};
        return true;
    }
    // The copy's folder is opened once, and the entry checked in it is the entry removed
    // from it: a folder of the path swapped for another (or for a link) meanwhile leads
    // neither the checks nor the removal elsewhere.
    const std::string name = lastPathComponent(path);
    UniqueFd folder(::open(parentPath(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat folderStat {};
    struct stat st {};
    if (!folder.valid() || ::fstat(folder.get(), &folderStat) != 0 ||
        ::fstatat(folder.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        setError(error, posixError(errno, path, "remove"));
        return false;
    }
    if (m_options.beforeDelete)
        m_options.beforeDelete(path);
    if (S_ISDIR(st.st_mode)) {
        // Never a recursive delete: what appeared or changed since the comparison stays.
        std::string why = "a folder is deleted only as far as it was compared";
        std::size_t removed = 0;
        if (!compared || !removeComparedTree(path, *compared, &why, folder.get(), &removed)) {
            if (compared)
                why =
                    (removed == 0 ? std::string("nothing of it was deleted")
                                  : std::to_string(removed) + " of its " + std::to_string(compared->size()) +
                                        " entries deleted, each as compared") +
                    "; " + why;
            setError(error, checkError(why));
            return false;
        }
    } else {
        // A file: still the one the scan saw and, when known, as it was compared a moment ago.
        struct stat now {};
        const bool scanned = m_current && m_current->file && m_current->file->path() == path;
        const bool asCompared = compared && compared->size() == 1 && compared->front().type == S_IFREG;
        if ((scanned || asCompared) &&
            (::fstatat(folder.get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 ||
             (scanned && !hasIdentity(now, identityOf(*m_current->file))) ||
             (asCompared && !isAsCompared(now, compared->front())))) {
            setError(error, checkError(kReasonChanged));
            return false;
        }
        if (::unlinkat(folder.get(), name.c_str(), 0) != 0) {
            setError(error, posixError(errno, path, "remove"));
            return false;
        }
    }
    if (removedFrom)
        *removedFrom = {static_cast<std::uint64_t>(folderStat.st_dev),
                        static_cast<std::uint64_t>(folderStat.st_ino)};
    return true;
}

void CVRemovalPass::countAsGone(const std::string& path) {
    m_gone.insert(path);
    if (m_options.dryRun)
        m_gone.insert(RemovalVerifier::resolvedPlace(path, &m_resolvedFolders));
}

std::optional<CVError> CVRemovalPass::shrediPhotoDup(CVFile& file) {
    const bool firstInPass = !m_iPhotoWasLaunched;
    if (firstInPass) {
        runOnMain([this] { m_services.view.showLibraryPopup(LibraryKind::Photos); }, true);
        if (!m_services.libraryAppDriver.launchApplication(kIPhotoBundleIdentifier)) {
            runOnMain([this] { m_services.view.hideLibraryPopup(LibraryKind::Photos); }, true);
            return CVError(kIPhotoLaunchErrorDomain, kLibraryLaunchErrorCode,
                           "the photo library application could not be started");
        }
    }
    const PropertyValue info = file.info();
    const std::string version =
        info["iPhotoVersion"].isNull() ? std::string() : info["iPhotoVersion"].toString();
    const bool useAdd = versionIsLower(version, "9.3");
    const bool isVideo = info["PhotoIsMovie"].toBool();
    const std::string path = file.path();
    auto scriptError = trashiPhotoImageWithPath(path, useAdd, isVideo);
    if (firstInPass) {
        runOnMain([this] { m_services.view.hideLibraryPopup(LibraryKind::Photos); }, true);
        m_iPhotoWasLaunched = true;
    }
    if (scriptError && scriptError->count(kScriptErrorNumberKey) &&
        scriptError->at(kScriptErrorNumberKey).toInt64() == kScriptErrorCantGet) {
        systemLog("Received can't get trash error. Will try to recover by removing photo again.");
        scriptError = trashiPhotoImageWithPath(path, useAdd, isVideo);
    }
    if (scriptError) {
        CVError failure(kIPhotoRemoveErrorDomain, kLibraryRemoveErrorCode);
        failure.userInfo = *scriptError;
        return failure;
    }
    if (!m_options.dryRun) {
        PropertyValue::Array removed =
            m_services.defaults.arrayForKey(kRemovedPhotosKey).value_or(PropertyValue::Array{});
        removed.emplace_back(path);
        m_services.defaults.setObject(PropertyValue(std::move(removed)), kRemovedPhotosKey);
    }
    return std::nullopt;
}

std::optional<PropertyValue::Dictionary> CVRemovalPass::trashiPhotoImageWithPath(const std::string& path,
                                                                                 bool useAdd, bool isVideo) {
    return m_services.libraryAppDriver.runScript(iPhotoTrashScript(path, useAdd, isVideo));
}

std::optional<CVError> CVRemovalPass::shrediTunesDup(CVFile& file) {
    const bool firstInPass = !m_iTunesWasLaunched;
    if (firstInPass) {
        runOnMain([this] { m_services.view.showLibraryPopup(LibraryKind::Music); }, true);
        if (!m_services.libraryAppDriver.launchApplication(kITunesBundleIdentifier)) {
            runOnMain([this] { m_services.view.hideLibraryPopup(LibraryKind::Music); }, true);
            return CVError(kITunesLaunchErrorDomain, kLibraryLaunchErrorCode,
                           "the music library application could not be started");
        }
    }
    const auto scriptError = m_services.libraryAppDriver.runScript(iTunesDeleteScript(file.path()));
    if (firstInPass) {
        runOnMain([this] { m_services.view.hideLibraryPopup(LibraryKind::Music); }, true);
        m_iTunesWasLaunched = true;
    }
    if (scriptError) {
        CVError failure(kITunesRemoveErrorDomain, kLibraryRemoveErrorCode);
        failure.userInfo = *scriptError;
        return failure;
    }
    return std::nullopt;
}

void CVRemovalPass::removeFinishedWithSize(std::uint64_t size, std::uint64_t files, bool completeRemove,
                                           bool stopped) {
    systemLogf("Removing finished. Complete remove = %i. Removed Count = %lu Size = %llu",
               static_cast<int>(completeRemove), files, size);
    CVRemovalView& view = m_services.view;
    if (!m_options.dryRun)
        view.postCleanedNotification(size);
    view.setButtonsEnabled(true);
    view.setCloseButtonEnabled(true);
    if (!m_services.defaults.boolForKey(kRemoveHardAnimationsKey))
        view.endShredderAnimations();
    m_shredInProgress = false;
    m_needRefreshing = true;
    const bool complete = completeRemove || m_services.results.allFiles().empty();
    m_stopped = stopped;
    m_complete = complete;
    if (stopped) {
        systemLog("Removing was stopped by user");
        countDuplicates();
        view.reloadCollector();
    } else if (!m_options.dryRun) {
        m_services.achievements.shreddingFinishedAndRemoved(size, !complete, m_iPhotoWasLaunched);
        m_services.statistics.removalFinishedWithSize(size, files);
    }
    view.setDoneButtonToolTip(
        localized(complete ? "ButtonToolTip_ScanAnotherFolder" : "ButtonToolTip_BackToResults", "Buttons"));
    if (m_errorFilesCount == 0)
        view.showSuccessView();
    else
        view.showErrorList(
            formatf(localized("TextFieldString_TotalUndeletedSize"), stringWithSize(m_failedSize)));
    m_finished = true;
}

} // namespace corvel
