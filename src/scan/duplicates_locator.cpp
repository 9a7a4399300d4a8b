// The scan pipeline
// =================
//
// walk -> sizes -> digests -> groups
//
// 1. Walk (walker threads, scan thread). The tree walker reads each root with folder
//    descriptors on a few threads and hands its entries to the scan thread in one-pass order;
//    CVFilesHierarchy builds the node tree from them. The ignore list refuses system
//    paths, hidden names and the user's exclusions before a node is made; refused
//    folders are not entered. Every file that is not ignored is filed under its byte
//    size; folders that may be compared as wholes are filed too when the root's walk ends.
//
// 2. Sizes (scan thread). Sizes held by one node are dropped at once: most files on a
//    disk have a size of their own and are never read. The rest are searched from the
//    largest size down; with the default settings sizes below 50000 bytes are searched
//    only until the 100 largest-first groups are found ("top count"), with a minimum
//    size from the preferences or the command line the minimum is a hard limit.
//
// 3. Classes (reader threads). Reader threads (one fewer than the cores: the scan
//    thread reads too while it waits) work ahead of the comparison through the files
//    of the next size groups that will be searched (a bounded window, so speculation
//    costs at most a few hundred reads), in chunks of 16 files, so that they share a
//    large group. For each file they read its content signature (a sampled 19600 bytes
//    from 500000 bytes up, the whole file below) and take its length and a 64-bit XXH3
//    hash; the same opening tells the file's owner and lock flags. Signatures of up to
//    64 KiB are kept with the digest, larger ones freed at once; the kept bytes of all
//    groups stay within one budget of a few MiB (kKeptBytesBudget), beyond which a
//    signature is not kept. The thread that reads a group's last chunk sorts the group
//    into classes: files are bucketed by digest, and only files that share a digest are
//    confirmed byte for byte (from the kept bytes, or read again from the page cache). The
//    digests are then freed on that thread. The scan thread reads chunks itself while
//    the group it waits for is not ready.
//
// 4. Groups (scan thread). The size group is walked in its sorted order, as the plain
//    pairwise comparison would: a folder is compared with the later folders as a
//    whole (child counts and sizes first, then every child by position: same name,
//    equal sub-folders, files with equal signatures); where a size group holds many
//    folders, each is fingerprinted first and compared only with the later folders
//    its fingerprint does not rule out (folder_fingerprint.h); a file takes every
//    later member of its class that still takes part (files inside folders found
//    equal before it are ignored by then) and has another path. Groups go out in the order of their
//    first members, so the result is the pairwise result, found in about linear time
//    instead of quadratic. Groups whose files may not be removed, or that are one
//    file under several hard links, are dropped.
//
// The main thread only hears of the scan: "scanStarted" is queued for it, progress
// goes out from the scan thread, and "scanFinished" runs on the main thread while the
// scan thread waits, which is the scan thread's only wait on the main thread. That wait
// can be dropped (stopScan, the destructor), and the owner never waits for a scan
// thread itself (a new scan's thread waits for the previous one), so the owner may be
// the main thread without ever waiting for itself.

#include "duplicates_locator.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <unordered_set>
#include <utility>

#include "engine/folder.h"
#include "engine/node_cache.h"
#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "media/media_manager.h"
#include "platform/file_access.h"
#include "platform/file_io.h"
#include "platform/invariant.h"
#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "platform/volumes.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "size_group_reader.h"

namespace corvel {

namespace {

constexpr unsigned kMaxReaderThreads = 4;

// Reader threads: one core is left to the scan thread, which reads too while it waits.
unsigned readerThreads() {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    return std::clamp(cores - 1, 1u, kMaxReaderThreads);
}

constexpr std::size_t kReadAheadFiles = 2 * SizeGroupReader::kWindow;
// How often the path being compared is updated for a progress display.
constexpr auto kScanPathInterval = std::chrono::milliseconds(40);

// Only folders have folder types: a file's type, which takes a look-up the first
// time, is not needed to tell.
bool isPlainFolder(const CVNode& node) {
    return dynamic_cast<const CVFolder*>(&node) && node.type() == kNodeTypePlainFolder;
}

// Whether two folders hold the very same files: every entry of one has the name of the
// entry at its place in the other, and every file is a hard link of the file there (a
// snapshot made with "cp -al" or a backup tool that links unchanged files). Removing
// either would free nothing, and grouping them would hide the files inside from the
// comparison of files. Children stand in the same order in equal folders; a sub-folder
// met twice in a list is looked at once.
bool holdTheSameFiles(const CVNode& a, const CVNode& b, std::unordered_set<const CVNode*>& seen) {
    const auto& mine = a.children();
    const auto& theirs = b.children();
    if (mine.size() != theirs.size())
        return false;
    for (std::size_t i = 0; i < mine.size(); ++i) {
        const CVNode& x = *mine[i];
        const CVNode& y = *theirs[i];
        if (lastPathComponent(x.storedPath()) != lastPathComponent(y.storedPath()))
            return false;
        const auto* folderX = dynamic_cast<const CVFolder*>(&x);
        const auto* folderY = dynamic_cast<const CVFolder*>(&y);
        if (folderX || folderY) {
            if (!folderX || !folderY)
                return false;
            if (seen.insert(&x).second && !holdTheSameFiles(x, y, seen))
                return false;
            continue;
        }
        const auto* fileX = dynamic_cast<const CVFile*>(&x);
        const auto* fileY = dynamic_cast<const CVFile*>(&y);
        if (!fileX || !fileY || fileX->inodeNumber() != fileY->inodeNumber() ||
            fileX->device() != fileY->device())
            return false;
    }
    return true;
}

bool holdTheSameFiles(const CVFolder& a, const CVFolder& b) {
    std::unordered_set<const CVNode*> seen;
    return holdTheSameFiles(a, b, seen);
}

} // namespace

CVDuplicatesLocator::CVDuplicatesLocator()
    : CVDuplicatesLocator(Services{CVIgnoreList::sharedIgnoreList(), CVPreferences::sharedInstance(),
                                   UserDefaults::standardUserDefaults(), defaultNodeServices()}) {}

CVDuplicatesLocator::CVDuplicatesLocator(Services services) : m_services(std::move(services)) {
    m_showFilesWOPermissions = m_services.defaults.boolForKey(kShowFilesWithNoPermissionsKey);
}

struct CVDuplicatesLocator::FinishHandOff {
    Mutex mutex;
    std::condition_variable condition;
    bool dropped GUARDED_BY(mutex) = false; // stopScan: the task must not run finishScan any more
    bool running GUARDED_BY(mutex) = false; // the task is in finishScan
    bool done GUARDED_BY(mutex) = false;    // the task has run finishScan
};

CVDuplicatesLocator::~CVDuplicatesLocator() {
    stopScan();
    waitForScanThread();
}

std::uint64_t CVDuplicatesLocator::newRequest() {
    MutexLock lock(m_fieldsMutex);
    return ++m_requestedScans;
}

bool CVDuplicatesLocator::isStopped(std::uint64_t request) const {
    MutexLock lock(m_fieldsMutex);
    return request <= m_stoppedThrough;
}

bool CVDuplicatesLocator::scanPaths(const std::vector<std::string>& paths) {
    if (paths.empty())
        return false;
    const std::uint64_t request = newRequest();
    ++m_runningThreads;
    // The previous scan's thread is waited for on the new thread, never here: the caller
    // may be the main thread that the previous scan waits for to run its finishScan.
    std::thread previous = std::move(m_thread);
    m_thread = std::thread([this, paths, request, previous = std::move(previous)]() mutable {
        if (previous.joinable())
            previous.join();
        runScan(paths, request);
        --m_runningThreads;
        // Wakes a main loop that waits for the thread to end.
        MainQueue::shared().post([] {});
    });
    return true;
}

void CVDuplicatesLocator::waitForScanThread() {
    if (m_thread.joinable())
        m_thread.join();
}

bool CVDuplicatesLocator::isWaitingForMainThread() const {
    std::shared_ptr<FinishHandOff> finish;
    {
        MutexLock lock(m_fieldsMutex);
        finish = m_pendingFinish;
    }
    if (!finish)
        return false;
    MutexLock lock(finish->mutex);
    return !finish->done && !finish->dropped;
}

void CVDuplicatesLocator::setPaths(const std::vector<std::string>& paths) {
    MutexLock lock(m_fieldsMutex);
    m_pathsToScan.clear();
    for (const auto& path : paths)
        m_pathsToScan.push_back(CVScanPath{path, false});
}

std::vector<CVScanPath> CVDuplicatesLocator::pathsToScan() const {
    MutexLock lock(m_fieldsMutex);
    return m_pathsToScan;
}

void CVDuplicatesLocator::stopScan() {
    std::shared_ptr<CVFilesHierarchy> hierarchy;
    std::shared_ptr<FinishHandOff> finish;
    {
        MutexLock lock(m_fieldsMutex);
        m_stoppedThrough = m_requestedScans;
        m_state = ScanState::Idle;
        hierarchy = m_hierarchy;
        finish = m_pendingFinish;
    }
    if (finish) {
        {
            MutexLock lock(finish->mutex);
            finish->dropped = true;
        }
        finish->condition.notify_all();
    }
    // Ends a read of a library file or of the library preferences in progress; a
    // locator that is not scanning leaves other readers alone.
    if (m_scanning.load()) {
        m_services.nodes->mediaManager.stopParsing();
        m_services.nodes->typeGenerator.stopReadingPreferences();
    }
    if (hierarchy)
        hierarchy->setCanContinue(false);
}

void CVDuplicatesLocator::finishScan() {
    m_state = ScanState::Idle;
    NotificationCenter::defaultCenter().post(kScanFinishedNotification);
}

void CVDuplicatesLocator::finishOnMainThread(std::uint64_t request) {
    MainQueue& queue = MainQueue::shared();
    if (queue.isMainThread()) {
        if (!isStopped(request))
            finishScan();
        return;
    }
    auto finish = std::make_shared<FinishHandOff>();
    {
        MutexLock lock(m_fieldsMutex);
        if (request <= m_stoppedThrough || state() != ScanState::Scanning)
            return;
        m_pendingFinish = finish;
    }
    // The task touches the locator only when not dropped. Until it has run or been
    // dropped it is m_pendingFinish, so stopScan (and so the destructor) drops it first.
    queue.post([this, finish] {
        {
            MutexLock lock(finish->mutex);
            if (finish->dropped)
                return;
            finish->running = true;
        }
        finishScan();
        {
            MutexLock lock(finish->mutex);
            finish->running = false;
            finish->done = true;
        }
        finish->condition.notify_all();
    });
    {
        MutexLock lock(finish->mutex);
        while (!finish->done && !(finish->dropped && !finish->running))
            lock.wait(finish->condition);
    }
    MutexLock lock(m_fieldsMutex);
    if (m_pendingFinish == finish)
        m_pendingFinish.reset();
}

std::shared_ptr<CVDuplicatesController> CVDuplicatesLocator::duplicatesController() const {
    MutexLock lock(m_fieldsMutex);
    return m_duplicatesController;
}

std::shared_ptr<CVFilesHierarchy> CVDuplicatesLocator::hierarchy() const {
    MutexLock lock(m_fieldsMutex);
    return m_hierarchy;
}

std::string CVDuplicatesLocator::currentScanPath() const {
    MutexLock lock(m_fieldsMutex);
    return m_currentScanPath;
}

void CVDuplicatesLocator::showScanPath(const CVNode& node) {
    const auto now = std::chrono::steady_clock::now();
    if (now - m_scanPathShown < kScanPathInterval)
        return;
    m_scanPathShown = now;
    setCurrentScanPath(node.path());
}

void CVDuplicatesLocator::setCurrentScanPath(const std::string& path) {
    MutexLock lock(m_fieldsMutex);
    m_currentScanPath = path;
}

void CVDuplicatesLocator::asyncScanPaths(const std::vector<std::string>& paths) {
    runScan(paths, newRequest());
}

void CVDuplicatesLocator::runScan(const std::vector<std::string>& paths, std::uint64_t request) {
    MutexLock scanLock(m_scanMutex);
    // Stopped while it waited for the scan before it.
    if (isStopped(request))
        return;
    NotificationCenter::defaultCenter().postOnMainThread({kScanStartedNotification, nullptr, {}, {}});
    m_services.nodes->nodeCache.resetCache();
    setPaths(paths);
    {
        // Under the lock, so that a stopScan either comes after (and sets 0) or is seen here.
        MutexLock lock(m_fieldsMutex);
        if (request <= m_stoppedThrough)
            return;
        m_state = ScanState::Scanning;
    }
    // Library files are parsed again once this scan has ended, stopped or not.
    auto& media = m_services.nodes->mediaManager;
    media.resumeParsing();
    m_scanning = true;
    struct ResumeAtEnd {
        CViMediaManager& media;
        std::atomic<bool>& scanning;
        ~ResumeAtEnd() {
            scanning = false;
            media.resumeParsing();
        }
    } resumeAtEnd{media, m_scanning};
    auto hierarchy = std::make_shared<CVFilesHierarchy>(
        pathsToScan(),
        CVFilesHierarchy::Services{m_services.ignoreList, m_services.preferences, m_services.nodes});
    hierarchy->setNodeDelegate(this);
    m_counters.reset();
    m_unreadFiles.clear();
    m_counters.stage = ScanCounters::Walking;
    hierarchy->setCounters(&m_counters);
    {
        // A stopScan either finds this hierarchy or is seen here.
        MutexLock lock(m_fieldsMutex);
        m_hierarchy = hierarchy;
        if (request <= m_stoppedThrough)
            hierarchy->setCanContinue(false);
    }
    systemLog("Scanning started");
    hierarchy->rescan();
    if (!hierarchy->canContinue())
        m_state = ScanState::Idle;
    else
        systemLog("Hierarchy building complete");
    if (state() != ScanState::Scanning)
        return;
    makeResultsCollection();
    locateDuplicatesInDictionary(hierarchy->filesGroupedBySize());
    if (state() == ScanState::Scanning)
        finishOnMainThread(request);
}

void CVDuplicatesLocator::startSearching() {
    m_state = ScanState::Scanning;
    makeResultsCollection();
}

void CVDuplicatesLocator::makeResultsCollection() {
    auto controller = std::make_shared<CVDuplicatesController>();
    MutexLock lock(m_fieldsMutex);
    m_duplicatesController = std::move(controller);
}

void CVDuplicatesLocator::updateProgress(double delta, double delaySeconds) {
    if (delaySeconds > 0 && m_progressPauses)
        std::this_thread::sleep_for(std::chrono::duration<double>(delaySeconds));
    m_notifier.willChangeValueForKey("progress");
    const double value = m_progress.load() + delta;
    m_progress = value;
    m_notifier.didChangeValueForKey("progress");
    NotificationCenter::defaultCenter().post(kProgressUpdatedNotification, nullptr, value);
}

void CVDuplicatesLocator::queueAhead(const std::vector<std::uint64_t>& keys, std::size_t from,
                                     SizeGroups& groups, const SizeSearchPolicy& policy) {
    m_queuedUpTo = std::max(m_queuedUpTo, from);
    while (m_queuedUpTo < keys.size() && m_reader->pendingFiles() < kReadAheadFiles) {
        const std::uint64_t size = keys[m_queuedUpTo];
        if (!policy.searches(size))
            return;
        // Sorted now, so that the places queued are the places searched.
        const std::span<NodePtr> nodes = groups.nodes(size);
        sortSizeGroup(nodes);
        std::vector<CVFile*> files;
        std::vector<std::size_t> positions;
        comparableFiles(nodes, files, positions);
        m_reader->enqueue(std::move(files), std::move(positions));
        ++m_queuedUpTo;
    }
}

void CVDuplicatesLocator::comparableFiles(std::span<const NodePtr> nodes, std::vector<CVFile*>& files,
                                          std::vector<std::size_t>& positions) const {
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (auto* file = dynamic_cast<CVFile*>(nodes[i].get());
            file && !dynamic_cast<CVFolder*>(file) && !ignoreFile(*file)) {
            files.push_back(file);
            positions.push_back(i);
        }
}

std::vector<std::uint64_t> CVDuplicatesLocator::sizesToSearch(const SizeGroups& groups) const {
    std::vector<std::uint64_t> sizes = groups.sizesLargestFirst();
    if (const std::optional<std::uint64_t> maximumSize = m_maximumSizeOverride)
        std::erase_if(sizes, [&](std::uint64_t size) { return size > *maximumSize; });
    return sizes;
}

void CVDuplicatesLocator::beginSizeSearch(const std::vector<std::uint64_t>& sizes, std::uint64_t useful) {
    m_smallerSizesSkipped = false;
    m_unremovableGroupsLeftOut = 0;
    m_counters.stage = ScanCounters::Comparing;
    systemLogf("Total groups count = %lu. Useful groups count = %lu", sizes.size(), useful);
    if (!sizes.empty())
        systemLogf("Max size = %@", sizes.front());
    m_counters.sizes = useful;
    m_reader = std::make_unique<SizeGroupReader>(
        readerThreads(), [this] { return state() != ScanState::Idle; }, &m_counters.bytesRead,
        m_keptBytesLimit, &m_unreadFiles);
    m_queuedUpTo = 0;
    m_folderAccess.clear();
    // The walk gives paths with links resolved, as these are.
    m_protectedFolders = m_services.ignoreList.protectedFolders();
    m_protectedIdentities = m_services.ignoreList.protectedFolderIdentities();
}

void CVDuplicatesLocator::endSizeSearch() {
    m_reader->clear();
    m_reader.reset();
}

void CVDuplicatesLocator::locateDuplicatesInDictionary(SizeGroups& groups) {
    SizeSearchPolicy policy(m_minimumSizeOverride, m_services.preferences);
    const std::vector<std::uint64_t> sizes = sizesToSearch(groups);
    const auto useful = static_cast<std::uint64_t>(
        std::count_if(sizes.begin(), sizes.end(), [&](std::uint64_t size) { return policy.isUseful(size); }));
    ScanProgressSteps steps(
        sizes.size(), useful, [this](double delta, double pause) { updateProgress(delta, pause); },
        [this] { return progress(); });
    m_progress = 0;
    m_progressDelta = steps.step();
    steps.start();
    beginSizeSearch(sizes, useful);
    for (std::size_t k = 0; k < sizes.size(); ++k) {
        const std::uint64_t size = sizes[k];
        if (policy.searches(size)) {
            queueAhead(sizes, k, groups, policy);
            const auto found = findDuplicatesInSizeGroup(groups.nodes(size));
            addDuplicateGroupsFromArray(found);
            policy.found(found.size());
        } else {
            m_smallerSizesSkipped = true;
            if (k < m_queuedUpTo) // no more groups are wanted: the sizes read ahead are not searched
                m_reader->clear();
        }
        if (policy.isUseful(size))
            m_counters.sizesDone.fetch_add(1, std::memory_order_relaxed);
        if (state() == ScanState::Idle) {
            endSizeSearch();
            groups.clear();
            return;
        }
        steps.sizeSearched();
    }
    endSizeSearch();
    groups.clear();
    steps.finish();
    const auto controller = duplicatesController();
    systemLogf("Total duplicates found size = %llu count = %lu", controller->size(),
               controller->mainMetaGroup()->filesCount());
}

void CVDuplicatesLocator::sortSizeGroup(std::span<NodePtr> nodes) {
    // Most size groups hold files only, which keep their order.
    if (std::none_of(nodes.begin(), nodes.end(), [](const NodePtr& node) { return isPlainFolder(*node); }))
        return;
    std::stable_sort(nodes.begin(), nodes.end(), [](const NodePtr& a, const NodePtr& b) {
        return isPlainFolder(*a) && (a->path().size() < b->path().size() || !isPlainFolder(*b));
    });
}

bool CVDuplicatesLocator::ignoreFile(const CVNode& node) const {
    const auto* file = dynamic_cast<const CVFile*>(&node);
    if (!file || file->ignore())
        return true;
    if (const auto* folder = dynamic_cast<const CVFolder*>(file); folder && folder->allChildrenIgnored())
        return true;
    const auto root = file->rootFolder();
    if (!root)
        return false;
    const NodeType rootType = root->type();
    if (file->type() == kNodeTypePlainFolder &&
        (isIPhotoLibFileType(rootType) || isITunesLibFileType(rootType)))
        return true;
    if (isIPhotoLibFileType(rootType) && file->info().count() == 0)
        return true;
    return false;
}

void CVDuplicatesLocator::decideRemoveForbidden(CVFile& file,
                                                const std::optional<ItemRemovalAccess>& item) const {
    if (const auto root = file.rootFolder();
        root && isITunesLibFileType(root->type()) && file.info().count() == 0) {
        file.setRemoveForbidden(false);
        file.setRootFolder(nullptr);
    }
    if (file.removeForbidden())
        return;
    if (dynamic_cast<const CVFolder*>(&file) &&
        (CVIgnoreList::coversProtectedFolder(file.path(), m_protectedFolders) ||
         CVIgnoreList::isProtectedIdentity({file.device(), file.inodeNumber()}, m_protectedIdentities) ||
         isMountRoot(file.path()))) {
        // Home and its standard folders stay, whatever they hold and whatever path leads to
        // them; so does a mounted volume or bind mount, which only its contents could leave.
        file.setRemoveForbidden(true);
        return;
    }
    const FolderRemovalAccess folder = folderAccess(file);
    if (!(item ? isDeletableByUser(*item, folder) : isDeletableByUser(file.path(), folder)))
        file.setRemoveForbidden(true);
}

FolderRemovalAccess CVDuplicatesLocator::folderAccess(const CVFile& file) const {
    const CVFolder* folder = file.parentFolder();
    if (!folder) // a root: its folder is not part of the tree
        return folderRemovalAccess(parentPath(file.path()));
    auto [it, inserted] = m_folderAccess.try_emplace(folder);
    if (inserted)
        it->second = folderRemovalAccess(folder->path());
    return it->second;
}

GroupPtr CVDuplicatesLocator::makeGroup(const std::shared_ptr<CVFile>& first,
                                        const std::vector<std::shared_ptr<CVFile>>& matches, bool decided) {
    if (!decided)
        decideRemoveForbidden(*first);
    auto group = CVGroup::initWithCVFile(first);
    first->setIgnore(true);
    for (const auto& match : matches) {
        if (!decided)
            decideRemoveForbidden(*match);
        group->addFile(match);
    }
    // The group took its last member's signature while folding; its bytes are of no use
    // once the group is made, and a scan with tens of thousands of groups must not keep them.
    group->releaseSignature();
    if (group->allFilesForbidden() && !m_showFilesWOPermissions) {
        ++m_unremovableGroupsLeftOut;
        return nullptr;
    }
    if (group->hardLinkCheck())
        return nullptr;
    return group;
}

EqualClasses CVDuplicatesLocator::classesOfSizeGroup(std::span<const NodePtr> nodes) {
    if (m_reader)
        return m_reader->take();
    // Searched on its own (not during a scan): read here.
    std::vector<CVFile*> files;
    std::vector<std::size_t> positions;
    comparableFiles(nodes, files, positions);
    KeptBytesBudget budget(m_keptBytesLimit);
    std::vector<SignatureDigest> digests;
    digests.reserve(files.size());
    for (CVFile* file : files) {
        digests.push_back(state() != ScanState::Idle ? digestOfFile(*file, &budget) : SignatureDigest());
        if (digests.back().error != 0)
            m_unreadFiles.note(*file, digests.back().error);
    }
    for (const auto& digest : digests)
        m_counters.bytesRead.fetch_add(digest.length, std::memory_order_relaxed);
    return equalClasses(
        files, positions, digests, [this] { return state() != ScanState::Idle; }, &m_unreadFiles);
}

FolderCandidates CVDuplicatesLocator::folderCandidates(std::span<const NodePtr> nodes) {
    FolderCandidates everyPair(nodes);
    if (everyPair.folderCount() < kFingerprintedFoldersFrom)
        return everyPair;
    // Nothing is kept: the digests only feed the fingerprints. A file that cannot be read
    // leaves its folder without one; the comparison then reads it again and names it.
    KeptBytesBudget nothingKept(0);
    const std::function<SignatureDigest(CVFile&)> digestOf = [&](CVFile& file) {
        SignatureDigest digest = digestOfFile(file, &nothingKept);
        m_counters.bytesRead.fetch_add(digest.length, std::memory_order_relaxed);
        return digest;
    };
    const std::function<bool()> keepGoing = [this] { return state() != ScanState::Idle; };
    std::vector<FolderFingerprint> fingerprints(nodes.size());
    for (std::size_t k = 0; k < nodes.size() && keepGoing(); ++k) {
        const auto* folder = dynamic_cast<const CVFolder*>(nodes[k].get());
        if (!folder || ignoreFile(*folder))
            continue;
        showScanPath(*folder);
        fingerprints[k] = folderFingerprint(*folder, digestOf, keepGoing);
    }
    return {nodes, fingerprints};
}

GroupPtr CVDuplicatesLocator::groupOfFolder(std::span<NodePtr> nodes, std::size_t i,
                                            const FolderCandidates& candidates,
                                            std::vector<bool>& sameFilesAsEarlier) {
    auto* folder = static_cast<CVFolder*>(nodes[i].get());
    if (sameFilesAsEarlier[i] || ignoreFile(*folder)) {
        folder->releaseSignature();
        return nullptr;
    }
    std::vector<std::shared_ptr<CVFile>> matches;
    // Whether this folder was found equal only on samples, looked at on the first match;
    // the other folder of a pair may hold what the walk left out too.
    std::optional<bool> folderSampled;
    bool confirmedAny = false;
    for (const std::size_t j : candidates.after(i)) {
        if (state() == ScanState::Idle)
            break;
        auto* other = dynamic_cast<CVFolder*>(nodes[j].get());
        if (!other || sameFilesAsEarlier[j] || ignoreFile(*other))
            continue;
        // The links first: they need no reading. A folder of links of this one is left
        // out of every folder group from now on, so many snapshots cost one look each.
        if (holdTheSameFiles(*folder, *other)) {
            sameFilesAsEarlier[j] = true;
            continue;
        }
        if (!folder->isDuplicateOf(*other))
            continue;
        bool sampled = false;
        if (m_foldersConfirmedWhole) {
            if (!folderSampled.has_value())
                folderSampled = comparedBySamples(*folder);
            sampled = *folderSampled || comparedBySamples(*other);
        }
        if (!confirmedWhole(*folder, *other, sampled))
            continue;
        confirmedAny = confirmedAny || sampled;
        if (matches.empty()) {
            decideRemoveForbidden(*folder);
            folder->setIgnore(true);
        }
        matches.push_back(std::static_pointer_cast<CVFile>(nodes[j]));
        // Marked at once, as joining the group would, so later folders skip it.
        other->setIgnore(true);
    }
    folder->releaseSignature();
    if (matches.empty())
        return nullptr;
    GroupPtr group = makeGroup(std::static_pointer_cast<CVFile>(nodes[i]), matches);
    if (group && confirmedAny)
        group->setContentVerified(true);
    return group;
}

bool CVDuplicatesLocator::confirmedWhole(const CVFolder& folder, const CVFolder& other, bool sampled) {
    if (!m_foldersConfirmedWhole || !sampled)
        return true;
    if (!m_contentComparer)
        m_contentComparer = std::make_unique<ContentComparer>([this] { return state() == ScanState::Idle; });
    const ContentComparison comparison = m_contentComparer->compareTrees(folder.path(), other.path());
    m_counters.bytesRead.fetch_add(comparison.bytesCompared, std::memory_order_relaxed);
    if (comparison.outcome == ContentComparison::CannotCompare)
        m_confirmationProblems.push_back(comparison.message);
    return comparison.isEqual();
}

GroupPtr CVDuplicatesLocator::groupOfClassMember(std::span<const NodePtr> nodes,
                                                 const std::vector<ClassMember>& members, std::size_t m,
                                                 std::vector<bool>& taken) {
    // The shared pointer of a member is the size group's own at the member's place.
    const auto held = [&](std::size_t k) {
        CORVEL_ASSERT(members[k].position < nodes.size() &&
                      nodes[members[k].position].get() == members[k].file);
        return std::static_pointer_cast<CVFile>(nodes[members[k].position]);
    };
    CVFile* first = members[m].file;
    if (taken[m] || ignoreFile(*first))
        return nullptr;
    // Within a class every pair is equal: the first file not yet taken takes every
    // later one that still takes part and has another path.
    std::vector<std::shared_ptr<CVFile>> matches;
    for (std::size_t b = m + 1; b < members.size(); ++b) {
        CVFile* other = members[b].file;
        if (taken[b] || ignoreFile(*other) || other->hasSamePathAs(*first))
            continue;
        taken[b] = true;
        decideRemoveForbidden(*other, members[b].item);
        matches.push_back(held(b));
    }
    if (matches.empty())
        return nullptr;
    taken[m] = true;
    decideRemoveForbidden(*first, members[m].item);
    return makeGroup(held(m), matches, true);
}

std::vector<GroupPtr> CVDuplicatesLocator::findDuplicatesInSizeGroup(std::span<NodePtr> nodes) {
    sortSizeGroup(nodes);
    // Files are sorted into classes of equal signatures ahead; the walk below then goes
    // through the group in order as the pairwise comparison would, so that a folder
    // found equal (whose files are then ignored) hides exactly the files after it.
    const EqualClasses classes = classesOfSizeGroup(nodes);
    constexpr auto kNoClass = static_cast<std::size_t>(-1);
    std::vector<std::pair<std::size_t, std::size_t>> place(nodes.size(), {kNoClass, 0});
    std::vector<std::vector<bool>> taken(classes.size());
    for (std::size_t c = 0; c < classes.size(); ++c) {
        taken[c].assign(classes[c].size(), false);
        for (std::size_t m = 0; m < classes[c].size(); ++m)
            place[classes[c][m].position] = {c, m};
    }
    std::vector<GroupPtr> groups;
    std::vector<bool> sameFilesAsEarlier(nodes.size(), false);
    const FolderCandidates candidates = folderCandidates(nodes);
    bool pathShown = false;
    for (std::size_t i = 0; i < nodes.size() && state() != ScanState::Idle; ++i) {
        GroupPtr group;
        if (dynamic_cast<CVFolder*>(nodes[i].get())) {
            showScanPath(*nodes[i]);
            group = groupOfFolder(nodes, i, candidates, sameFilesAsEarlier);
        } else {
            if (!pathShown) {
                showScanPath(*nodes[i]);
                pathShown = true;
            }
            if (const auto [c, m] = place[i]; c != kNoClass)
                group = groupOfClassMember(nodes, classes[c], m, taken[c]);
        }
        if (group)
            groups.push_back(std::move(group));
    }
    // Signatures folders made of these files are of no more use.
    for (const auto& node : nodes)
        if (!dynamic_cast<CVFolder*>(node.get()))
            node->releaseSignature();
    return groups;
}

void CVDuplicatesLocator::addDuplicateGroup(const GroupPtr& group) {
    duplicatesController()->addGroup(group);
}

void CVDuplicatesLocator::addDuplicateGroupsFromArray(const std::vector<GroupPtr>& groups) {
    for (const auto& group : groups)
        addDuplicateGroup(group);
}

} // namespace corvel
