#pragma once
// HangGuard: ends the test program with a message when the code under test has not
// returned within a deadline, so that a deadlock fails the run instead of holding it
// until the test runner's own time-out. For tests that must run in the test process
// itself (a sanitizer sees only what runs there), where runInChild does not fit.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace corvel::test {

class HangGuard {
public:
    HangGuard(std::chrono::seconds deadline, std::string what)
        : m_what(std::move(what)), m_watcher([this, deadline] {
              std::unique_lock lock(m_mutex);
              if (!m_condition.wait_for(lock, deadline, [this] { return m_released; })) {
                  std::fprintf(stderr,
                               "HangGuard: %s did not return within %lld s; ending the test program\n",
                               m_what.c_str(), static_cast<long long>(deadline.count()));
                  std::fflush(stderr);
                  std::abort();
              }
          }) {}

    ~HangGuard() {
        {
            std::lock_guard lock(m_mutex);
            m_released = true;
        }
        m_condition.notify_all();
        m_watcher.join();
    }

    HangGuard(const HangGuard&) = delete;
    HangGuard& operator=(const HangGuard&) = delete;

private:
    std::string m_what;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_released = false;
    std::thread m_watcher;
};

} // namespace corvel::test
