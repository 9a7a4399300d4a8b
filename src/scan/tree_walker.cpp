#include "tree_walker.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fts.h>
#include <memory>
#include <mutex>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

#include "engine/file_sizer.h"
#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "settings/ignore_list.h"

namespace corvel {

namespace {

// fts_number of a folder whose closing entry is not reported (dropped or a cycle).
constexpr long kQuietEnd = 1;

// The entries fts has read for the folder it just returned.
class FtsListing : public FolderListing {
public:
    explicit FtsListing(const FTSENT* first) : m_first(first) {}
    bool contains(std::string_view name) const override {
        for (const FTSENT* child = m_first; child; child = child->fts_link)
            if (std::string_view(child->fts_name, child->fts_namelen) == name)
                return true;
        return false;
    }

private:
    const FTSENT* m_first;
};

// Each folder's entries in name order, byte by byte: readdir order differs from one
// file system to another, and folders are compared child by child by position.
int byName(const FTSENT** a, const FTSENT** b) {
    const std::size_t lengthA = (*a)->fts_namelen;
    const std::size_t lengthB = (*b)->fts_namelen;
    const int order = std::memcmp((*a)->fts_name, (*b)->fts_name, std::min(lengthA, lengthB));
    if (order != 0)
        return order;
    return lengthA < lengthB ? -1 : (lengthA > lengthB ? 1 : 0);
}

struct FtsCloser {
    void operator()(FTS* fts) const { ::fts_close(fts); }
};

using FolderId = std::pair<dev_t, ino_t>;

// What a task inherits from the folders above its top folder.
struct Context {
    std::int32_t type = 0;           // the top folder's type
    int depth = 0;                   // depth once the top is entered
    int specialOpen = 0;             // folders of a special type open, the top included
    dev_t device = 0;                // the root's device
    std::vector<FolderId> ancestors; // folders above the top, for cycles
};

// A block of a task's entries. One thread writes it while another reads what is
// published: entries and text never move once written, and the count and the link to
// the next block are published with release stores after what they cover.
struct Chunk {
    static constexpr std::uint32_t kEntries = 256;
    static constexpr std::size_t kText = 16384;

    explicit Chunk(std::size_t capacity) : text(std::make_unique<char[]>(capacity)), textCapacity(capacity) {}

    struct Slot {
        WalkEntry entry;
        std::int64_t subtask = -1; // the entries of this task stand here instead
    };
    std::array<Slot, kEntries> slots;
    std::unique_ptr<char[]> text;
    std::size_t textCapacity;
    std::size_t textUsed = 0;
    std::uint32_t written = 0;
    std::atomic<std::uint32_t> published{0};
    std::atomic<Chunk*> next{nullptr};
};

struct Task {
    enum State { Pending, Running, Done };
    std::size_t id = 0;
    std::string path;
    bool isRoot = false;
    Context context;
    std::atomic<State> state{Pending};
    std::unique_ptr<Chunk> first = std::make_unique<Chunk>(Chunk::kText); // the consumer frees it
    Chunk* last = first.get();                                            // the writer's end
};

} // namespace

// The state of one walk() call.
class WalkRun {
public:
    WalkRun(CVIgnoreList& ignoreList, const std::atomic<bool>& canContinue, TreeWalker::Options options,
            const CVScanPath& root, const TreeWalker::Consumer& consume)
        : m_ignoreList(ignoreList), m_canContinue(canContinue), m_options(options), m_root(root),
          m_consume(consume), m_pattern(ignoreList.additionalRegexCopy()) {}

    bool run(int& error) {
        auto root = std::make_unique<Task>();
        root->path = m_root.path;
        root->isRoot = true;
        m_tasks.push_back(std::move(root));
        m_pending.push_back(0);
        for (unsigned i = 0; i < m_options.threads; ++i)
            m_workers.emplace_back([this] { work(); });
        consumeTask(0);
        {
            std::lock_guard lock(m_mutex);
            m_finished = true;
        }
        m_changed.notify_all();
        for (auto& worker : m_workers)
            worker.join();
        error = m_openError;
        return m_openError == 0;
    }

private:
    bool going() const {
        return m_canContinue.load(std::memory_order_relaxed) && !m_abandoned.load(std::memory_order_relaxed);
    }

    // Writer side: appends an entry (its text copied into the chunk) or a sub-task mark.
    void append(Task& task, WalkEntry e, std::int64_t subtask = -1) {
        const std::size_t text = e.name.size() + e.path.size();
        Chunk* chunk = task.last;
        if (chunk->written == Chunk::kEntries || chunk->textUsed + text > chunk->textCapacity) {
            throttle(task);
            auto* next = new Chunk(std::max(Chunk::kText, text));
            task.last = next;
            chunk->next.store(next, std::memory_order_release);
            wake();
            chunk = next;
        }
        auto keep = [&](std::string_view s) {
            char* at = chunk->text.get() + chunk->textUsed;
            std::copy(s.begin(), s.end(), at);
            chunk->textUsed += s.size();
            return std::string_view(at, s.size());
        };
        e.name = keep(e.name);
        e.path = keep(e.path);
        chunk->slots[chunk->written] = Chunk::Slot{e, subtask};
        chunk->published.store(++chunk->written, std::memory_order_release);
        m_buffered.fetch_add(1, std::memory_order_relaxed);
    }

    // Pauses the writer of a task the consumer does not read while too much waits. A
    // paused writer walks the task the consumer needs if nobody has started it, so the
    // consumer always gets on.
    void throttle(const Task& task) {
        if (m_buffered.load(std::memory_order_relaxed) <= m_options.bufferedEntries)
            return;
        std::unique_lock lock(m_mutex);
        ++m_paused;
        for (;;) {
            if (m_buffered.load(std::memory_order_relaxed) <= m_options.bufferedEntries / 2 ||
                m_needed == task.id || !going())
                break;
            if (isPending(m_needed)) {
                --m_paused;
                walkTaken(takePending(m_needed), lock);
                ++m_paused;
                continue;
            }
            m_changed.wait(lock);
        }
        --m_paused;
    }

    // Wakes the consumer after publishing without the lock: taking the lock first means it
    // is either waiting already or will see what was published.
    void wake() {
        { std::lock_guard lock(m_mutex); }
        m_changed.notify_all();
    }

    void deliver(const WalkEntry& e) {
        if (!going())
            return;
        m_consume(e);
        if (e.kind == WalkEntry::Failure && e.endsRoot)
            m_abandoned = true;
    }

    // Makes id the task the consumer reads. Without workers the consumer walks it here.
    Task& need(std::size_t id) {
        Task* task;
        {
            std::unique_lock lock(m_mutex);
            task = m_tasks[id].get();
            m_needed = id;
            if (m_options.threads == 0 && isPending(id))
                walkTaken(takePending(id), lock);
        }
        m_changed.notify_all(); // a worker or a paused writer may take it, or resume
        return *task;
    }

    // Hands the task's entries to the consumer as they are written, and the entries of
    // its sub-tasks where they belong. Consumer thread.
    void consumeTask(std::size_t id) {
        Task* task = &need(id);
        std::unique_ptr<Chunk> chunk = std::move(task->first);
        std::uint32_t read = 0;
        for (;;) {
            const std::uint32_t published = chunk->published.load(std::memory_order_acquire);
            for (; read < published; ++read) {
                const Chunk::Slot& slot = chunk->slots[read];
                m_buffered.fetch_sub(1, std::memory_order_relaxed);
                if (slot.subtask >= 0) {
                    consumeTask(static_cast<std::size_t>(slot.subtask));
                    need(id);
                } else {
                    deliver(slot.entry);
                }
            }
            if (Chunk* next = chunk->next.load(std::memory_order_acquire)) {
                if (read == chunk->published.load(std::memory_order_acquire)) {
                    chunk.reset(next);
                    read = 0;
                    if (m_buffered.load(std::memory_order_relaxed) <= m_options.bufferedEntries / 2)
                        wake(); // paused writers may go on
                }
                continue;
            }
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [&] {
                return chunk->published.load(std::memory_order_acquire) > read ||
                       chunk->next.load(std::memory_order_acquire) || task->state == Task::Done;
            });
            if (task->state == Task::Done && chunk->published.load(std::memory_order_acquire) == read &&
                !chunk->next.load(std::memory_order_acquire))
                return;
        }
    }

    bool isPending(std::size_t id) const {
        return std::find(m_pending.begin(), m_pending.end(), id) != m_pending.end();
    }

    // Takes a pending task off the list. Called with the lock held.
    Task& takePending(std::size_t id) {
        m_pending.erase(std::find(m_pending.begin(), m_pending.end(), id));
        return *m_tasks[id];
    }

    // Walks a task taken with the lock held; the lock is released meanwhile.
    void walkTaken(Task& task, std::unique_lock<std::mutex>& lock) {
        task.state = Task::Running;
        lock.unlock();
        walkTask(task);
        lock.lock();
        task.state = Task::Done;
        m_changed.notify_all();
    }

    void work() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            ++m_idle;
            m_changed.wait(lock, [&] { return m_finished || !m_pending.empty(); });
            --m_idle;
            if (m_finished)
                return;
            // The task the consumer waits for first, else the oldest.
            walkTaken(takePending(isPending(m_needed) ? m_needed : m_pending.front()), lock);
        }
    }

    // A folder is cut off only for a worker that has nothing to do (idle, or paused for
    // being ahead): a task that waited would let its writer run further ahead.
    bool mayCut() {
        if (m_options.cutEverywhere)
            return true;
        std::lock_guard lock(m_mutex);
        return m_idle + m_paused > m_pending.size();
    }

    std::size_t addTask(std::string path, Context context) {
        std::size_t id;
        {
            std::lock_guard lock(m_mutex);
            auto task = std::make_unique<Task>();
            task->id = m_tasks.size();
            task->path = std::move(path);
            task->context = std::move(context);
            id = m_tasks.size();
            m_tasks.push_back(std::move(task));
            m_pending.push_back(id);
        }
        m_changed.notify_all();
        return id;
    }

    // One fts pass over the task's folder, its entries kept in the task.
    void walkTask(Task& task);

    CVIgnoreList& m_ignoreList;
    const std::atomic<bool>& m_canContinue;
    TreeWalker::Options m_options;
    const CVScanPath& m_root;
    const TreeWalker::Consumer& m_consume;
    const std::optional<RegularExpression> m_pattern; // the ignore pattern as the walk began

    std::mutex m_mutex; // guards the lists, m_needed, m_finished, and waiting on m_changed
    std::condition_variable m_changed;
    std::deque<std::unique_ptr<Task>> m_tasks; // by id; the root task is 0
    std::deque<std::size_t> m_pending;         // ids no thread has started, oldest first
    std::size_t m_needed = 0;                  // the task the consumer reads
    std::atomic<std::size_t> m_buffered{0};    // entries written and not yet read
    std::size_t m_paused = 0;                  // writers waiting in throttle()
    std::size_t m_idle = 0;                    // workers waiting for a task
    bool m_finished = false;
    std::atomic<bool> m_abandoned{false};
    int m_openError = 0;
    std::vector<std::thread> m_workers;
};

void WalkRun::walkTask(Task& task) {
    if (!going())
        return;
    char* paths[] = {task.path.data(), nullptr};
    std::unique_ptr<FTS, FtsCloser> fts(::fts_open(paths, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, byName));
    if (!fts) {
        if (task.isRoot) {
            m_openError = errno;
            return;
        }
        WalkEntry failure;
        failure.kind = WalkEntry::Failure;
        failure.error = errno;
        failure.path = task.path;
        append(task, failure);
        return;
    }
    Context& context = task.context;
    // Types of the open folders (the top's first when the task starts below the root).
    std::vector<std::int32_t> open;
    if (!task.isRoot)
        open.push_back(context.type);
    int depth = context.depth;
    int specialOpen = context.specialOpen;
    std::string path;

    auto closeFolder = [&] {
        if (open.empty())
            return;
        if (open.back() != kNodeTypePlainFolder)
            --specialOpen;
        open.pop_back();
        --depth;
    };

    // Reads before checking for a stop: fts_close leaks the roots fts_open made when no
    // entry was ever read.
    for (FTSENT* entry; (entry = ::fts_read(fts.get())) != nullptr;) {
        if (!going())
            break;
        const int info = entry->fts_info;
        const bool top = entry->fts_level == FTS_ROOTLEVEL;
        path.assign(entry->fts_path, entry->fts_pathlen);
        if (top && task.isRoot)
            context.device = entry->fts_statp ? entry->fts_statp->st_dev : 0;
        // A sub-task's top was reported, and is closed, by the task that cut it; only a
        // failure to read it is news.
        const bool failed = info == FTS_DNR || info == FTS_ERR || info == FTS_NS || info == FTS_DC;
        if (top && !task.isRoot && !failed)
            continue;
        if (info == FTS_DP && entry->fts_number == kQuietEnd)
            continue;

        WalkEntry e;
        e.name = std::string_view(entry->fts_name, entry->fts_namelen);
        switch (info) {
        case FTS_D:
        case FTS_F:
        case FTS_DEFAULT: {
            const bool isFolder = info == FTS_D;
            const struct stat* st = entry->fts_statp;
            if (isFolder && std::find(context.ancestors.begin(), context.ancestors.end(),
                                      FolderId{st->st_dev, st->st_ino}) != context.ancestors.end()) {
                // What fts reports for a cycle inside one pass.
                e.kind = WalkEntry::Failure;
                e.path = path;
                append(task, e);
                entry->fts_number = kQuietEnd;
                ::fts_set(fts.get(), entry, FTS_SKIP);
                break;
            }
            // A folder that may be cut needs only the names of its entries here: its
            // own task reads it again.
            const bool cut = isFolder && !top && mayCut();
            std::optional<FtsListing> listing;
            if (isFolder)
                listing.emplace(::fts_children(fts.get(), cut ? FTS_NAMEONLY : 0));
            const FolderListing* folderListing = listing ? &*listing : nullptr;
            const std::int32_t parentType = open.empty() ? 0 : open.back();
            const ScanVerdict verdict =
                m_ignoreList.isPathForbiddenToScan(path, parentType, m_root.forceScan, isFolder,
                                                   folderListing, m_pattern ? &*m_pattern : nullptr);
            bool skip = false;
            if (verdict == ScanAllowed) {
                if (isFolder && depth >= TreeWalker::kMaxPlainDepth && specialOpen == 0) {
                    skip = true;
                    e.depthLimited = true;
                }
            } else {
                skip = true;
                if (e.name == ".DS_Store") { // dropped without a trace
                    if (isFolder) {
                        entry->fts_number = kQuietEnd;
                        ::fts_set(fts.get(), entry, FTS_SKIP);
                    }
                    break;
                }
                e.ignored = true;
                e.systemFolder = isFolder && verdict == ScanRefusedSystemPath;
            }
            e.size = static_cast<std::uint64_t>(st->st_size);
            e.sizeOnDisk = HVFileSizer::itemSizeWithFTSEntry(entry);
            e.inode = st->st_ino;
            e.ctime = st->st_ctim.tv_sec;
            e.mtimeNanoseconds = st->st_mtim.tv_sec * std::int64_t{1000000000} + st->st_mtim.tv_nsec;
            e.device = st->st_dev;
            if (!isFolder) {
                e.kind = WalkEntry::File;
                if (top)
                    e.path = path;
                append(task, e);
                break;
            }
            e.kind = WalkEntry::Folder;
            e.path = path;
            std::int32_t type = kNodeTypePlainFolder;
            e.contentHidden = m_ignoreList.isPathContentHidden(path, type, folderListing);
            e.type = type;
            e.contentUndeletable = m_ignoreList.isPathContentForbiddenToRemove(path);
            append(task, e);
            open.push_back(type);
            ++depth;
            if (type != kNodeTypePlainFolder)
                ++specialOpen;
            if (skip) { // not entered; fts still reports its end, which closes it
                ::fts_set(fts.get(), entry, FTS_SKIP);
            } else if (cut && st->st_dev == context.device) {
                Context below;
                below.type = type;
                below.depth = depth;
                below.specialOpen = specialOpen;
                below.device = context.device;
                below.ancestors = context.ancestors;
                for (const FTSENT* up = entry->fts_parent; up && up->fts_level >= FTS_ROOTLEVEL;
                     up = up->fts_parent)
                    below.ancestors.emplace_back(up->fts_statp->st_dev, up->fts_statp->st_ino);
                append(task, WalkEntry{}, static_cast<std::int64_t>(addTask(path, std::move(below))));
                ::fts_set(fts.get(), entry, FTS_SKIP);
            }
            break;
        }
        case FTS_DP:
            e.kind = WalkEntry::FolderEnd;
            append(task, e);
            closeFolder();
            break;
        case FTS_SL:
        case FTS_SLNONE:
            break;
        default: {
            e.kind = WalkEntry::Failure;
            e.path = path;
            e.error = entry->fts_errno;
            e.endsRoot = e.error == ENXIO || (e.error == ENOENT && top && task.isRoot);
            // A folder just entered that could not be read; a sub-task's top is closed by
            // the task that cut it.
            e.closesFolder = info == FTS_DNR && !(top && !task.isRoot) && !open.empty();
            append(task, e);
            if (e.closesFolder)
                closeFolder();
            break;
        }
        }
    }
}

TreeWalker::TreeWalker(CVIgnoreList& ignoreList, const std::atomic<bool>& canContinue, Options options)
    : m_ignoreList(ignoreList), m_canContinue(canContinue), m_options(options) {}

bool TreeWalker::walk(const CVScanPath& root, const Consumer& consume, int& error) {
    WalkRun run(m_ignoreList, m_canContinue, m_options, root, consume);
    return run.run(error);
}

unsigned TreeWalker::defaultThreads() {
    return std::clamp(std::thread::hardware_concurrency(), 1U, 4U);
}

} // namespace corvel
