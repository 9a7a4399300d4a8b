#include "tree_walker.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "folder_walk.h"
#include "platform/thread_annotations.h"
#include "settings/ignore_list.h"

namespace corvel {

namespace {

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
    WalkContext context;
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

    bool run(int& error) EXCLUDES(m_mutex) {
        auto root = std::make_unique<Task>();
        root->path = m_root.path;
        root->isRoot = true;
        {
            MutexLock lock(m_mutex);
            m_tasks.push_back(std::move(root));
            m_pending.push_back(0);
        }
        for (unsigned i = 0; i < m_options.threads; ++i)
            m_workers.emplace_back([this] { work(); });
        consumeTask(0);
        {
            MutexLock lock(m_mutex);
            m_finished = true;
        }
        m_changed.notify_all();
        for (auto& worker : m_workers)
            worker.join();
        MutexLock lock(m_mutex);
        error = m_openError;
        return m_openError == 0;
    }

private:
    [[nodiscard]] bool going() const {
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
    void throttle(const Task& task) EXCLUDES(m_mutex) {
        if (m_buffered.load(std::memory_order_relaxed) <= m_options.bufferedEntries)
            return;
        MutexLock lock(m_mutex);
        ++m_paused;
        for (;;) {
            if (m_buffered.load(std::memory_order_relaxed) <= m_options.bufferedEntries / 2 ||
                m_needed == task.id || !going())
                break;
            if (isPending(m_needed)) {
                --m_paused;
                walkTaken(takePending(m_needed));
                ++m_paused;
                continue;
            }
            lock.wait(m_changed);
        }
        --m_paused;
    }

    // Wakes the consumer after publishing without the lock: taking the lock first means it
    // is either waiting already or will see what was published.
    void wake() EXCLUDES(m_mutex) {
        { MutexLock lock(m_mutex); }
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
    Task& need(std::size_t id) EXCLUDES(m_mutex) {
        Task* task;
        {
            MutexLock lock(m_mutex);
            task = m_tasks[id].get();
            m_needed = id;
            if (m_options.threads == 0 && isPending(id))
                walkTaken(takePending(id));
        }
        m_changed.notify_all(); // a worker or a paused writer may take it, or resume
        return *task;
    }

    // Hands the task's entries to the consumer as they are written, and the entries of
    // its sub-tasks where they belong. Consumer thread.
    void consumeTask(std::size_t id) EXCLUDES(m_mutex) {
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
            MutexLock lock(m_mutex);
            while (chunk->published.load(std::memory_order_acquire) <= read &&
                   chunk->next.load(std::memory_order_acquire) == nullptr && task->state != Task::Done)
                lock.wait(m_changed);
            if (task->state == Task::Done && chunk->published.load(std::memory_order_acquire) == read &&
                chunk->next.load(std::memory_order_acquire) == nullptr)
                return;
        }
    }

    [[nodiscard]] bool isPending(std::size_t id) const REQUIRES(m_mutex) {
        return std::find(m_pending.begin(), m_pending.end(), id) != m_pending.end();
    }

    // Takes a pending task off the list.
    Task& takePending(std::size_t id) REQUIRES(m_mutex) {
        m_pending.erase(std::find(m_pending.begin(), m_pending.end(), id));
        return *m_tasks[id];
    }

    // Walks a task taken with the lock held; the lock is released meanwhile.
    void walkTaken(Task& task) REQUIRES(m_mutex) {
        task.state = Task::Running;
        m_mutex.unlock();
        walkTask(task);
        m_mutex.lock();
        task.state = Task::Done;
        m_changed.notify_all();
    }

    void work() EXCLUDES(m_mutex) {
        MutexLock lock(m_mutex);
        for (;;) {
            ++m_idle;
            while (!m_finished && m_pending.empty())
                lock.wait(m_changed);
            --m_idle;
            if (m_finished)
                return;
            // The task the consumer waits for first, else the oldest.
            walkTaken(takePending(isPending(m_needed) ? m_needed : m_pending.front()));
        }
    }

    // A folder is cut off only for a worker that has nothing to do (idle, or paused for
    // being ahead): a task that waited would let its writer run further ahead.
    bool mayCut() EXCLUDES(m_mutex) {
        if (m_options.cutEverywhere)
            return true;
        MutexLock lock(m_mutex);
        return m_idle + m_paused > m_pending.size();
    }

    std::size_t addTask(std::string path, WalkContext context) EXCLUDES(m_mutex) {
        std::size_t id;
        {
            MutexLock lock(m_mutex);
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

    // One pass over the task's folder, its entries kept in the task.
    void walkTask(Task& task) EXCLUDES(m_mutex);

    // Where one task's pass puts its entries and its cuts.
    class TaskSink final : public WalkSink {
    public:
        TaskSink(WalkRun& run, Task& task) : m_run(run), m_task(task) {}
        [[nodiscard]] bool going() const override { return m_run.going(); }
        void emit(const WalkEntry& entry) override { m_run.append(m_task, entry); }
        bool mayCut() override { return m_run.mayCut(); }
        void cut(std::string path, WalkContext context) override {
            const std::size_t id = m_run.addTask(std::move(path), std::move(context));
            m_run.append(m_task, WalkEntry{}, static_cast<std::int64_t>(id));
        }

    private:
        WalkRun& m_run;
        Task& m_task;
    };

    CVIgnoreList& m_ignoreList;
    const std::atomic<bool>& m_canContinue;
    TreeWalker::Options m_options;
    const CVScanPath& m_root;
    const TreeWalker::Consumer& m_consume;
    const std::optional<RegularExpression> m_pattern; // the ignore pattern as the walk began

    // Guards the fields marked with it, and waiting on m_changed. A chunk's entries are
    // published without it (see Chunk); a task's state is atomic, read by the consumer's wait.
    Mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::unique_ptr<Task>> m_tasks GUARDED_BY(m_mutex); // by id; the root task is 0
    std::deque<std::size_t> m_pending GUARDED_BY(m_mutex);         // ids no thread has started, oldest first
    std::size_t m_needed GUARDED_BY(m_mutex) = 0;                  // the task the consumer reads
    std::atomic<std::size_t> m_buffered{0};                        // entries written and not yet read
    std::size_t m_paused GUARDED_BY(m_mutex) = 0;                  // writers waiting in throttle()
    std::size_t m_idle GUARDED_BY(m_mutex) = 0;                    // workers waiting for a task
    bool m_finished GUARDED_BY(m_mutex) = false;
    std::atomic<bool> m_abandoned{false};
    int m_openError GUARDED_BY(m_mutex) = 0;
    std::vector<std::thread> m_workers;
};

void WalkRun::walkTask(Task& task) {
    if (!going())
        return;
    TaskSink sink(*this, task);
    FolderWalk walk(m_ignoreList, m_root, m_pattern ? &*m_pattern : nullptr, sink);
    if (!task.isRoot) {
        walk.walkBelow(task.path, task.context);
        return;
    }
    int error = 0;
    if (!walk.walkRoot(error)) {
        MutexLock lock(m_mutex);
        m_openError = error;
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
