#pragma once
// A private D-Bus bus for tests (a dbus-daemon of our own with a configuration that
// starts no services), and a tiny notification service on it written with sd-bus that
// records what it is asked to show. Tests never reach the account's own session bus.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

#include "support/temp_tree.h"

struct sd_bus_message;

namespace corvel::test {

class PrivateSessionBus {
public:
    // Starts dbus-daemon; address() is empty (and why() says why) when it could not.
    PrivateSessionBus();
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    const std::string& address() const { return m_address; }
    const std::string& why() const { return m_why; }

private:
    TempTree m_folder;
    std::string m_address;
    std::string m_why;
    pid_t m_daemon = -1;
};

struct RecordedNotification {
    std::string appName;
    std::string summary;
    std::string body;
    std::vector<std::string> actions;
};

// Owns org.freedesktop.Notifications on the bus at address, answering Notify (recorded,
// ids from 1), GetCapabilities, GetServerInformation and CloseNotification on its own thread.
class FakeNotificationServer {
public:
    explicit FakeNotificationServer(const std::string& address);
    ~FakeNotificationServer();
    FakeNotificationServer(const FakeNotificationServer&) = delete;
    FakeNotificationServer& operator=(const FakeNotificationServer&) = delete;

    // True once the name is owned; false when the server could not start (why() says why).
    bool ready() const { return m_ready; }
    const std::string& why() const { return m_why; }
    std::vector<RecordedNotification> notifications() const;

private:
    friend int answerNotificationCall(sd_bus_message* message, FakeNotificationServer& server);
    void run(const std::string& address);

    mutable std::mutex m_mutex;
    std::condition_variable m_started;
    bool m_startDone = false;
    bool m_ready = false;
    std::string m_why;
    std::vector<RecordedNotification> m_notifications;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace corvel::test
