#pragma once
// Clang's thread-safety attributes, for the compiler to check which lock guards which
// field (clang -Wthread-safety, run by "make lint"). Under other compilers they expand
// to nothing. Mutex and MutexLock below carry them for std::mutex.
//
//   CAPABILITY(name)     a class that is a lock
//   SCOPED_CAPABILITY    a class that holds a lock for its lifetime
//   GUARDED_BY(m)        a field read and written only with m held
//   PT_GUARDED_BY(m)     what a pointer field points to, only with m held
//   REQUIRES(m...)       a function called only with m held
//   ACQUIRE(m...)        a function that takes m (nothing: the object itself)
//   RELEASE(m...)        a function that gives m back (nothing: the object itself)
//   EXCLUDES(m...)       a function called only without m (it takes m itself)
//   RETURN_CAPABILITY(m) a function that answers m
//   NO_THREAD_SAFETY_ANALYSIS  a function the analysis cannot follow; say why beside it

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define CORVEL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define CORVEL_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) CORVEL_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY CORVEL_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) CORVEL_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) CORVEL_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) CORVEL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) CORVEL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) CORVEL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define EXCLUDES(...) CORVEL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RETURN_CAPABILITY(x) CORVEL_THREAD_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS CORVEL_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace corvel {

// A std::mutex the analysis knows as a lock. Not copyable or movable.
class CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }

private:
    friend class MutexLock;
    std::mutex m_mutex;
};

// Holds a Mutex from construction to destruction, like std::unique_lock. wait() sleeps on a
// condition variable with the mutex released meanwhile and held again on return (the
// analysis treats it as held throughout, which is what the caller sees). unlock() and
// lock() release and take it again inside the scope. One thread.
class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_lock(mutex.m_mutex) {}
    ~MutexLock() RELEASE() = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void lock() ACQUIRE() { m_lock.lock(); }
    void unlock() RELEASE() { m_lock.unlock(); }
    void wait(std::condition_variable& condition) { condition.wait(m_lock); }

private:
    std::unique_lock<std::mutex> m_lock;
};

} // namespace corvel
