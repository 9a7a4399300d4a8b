#include "private_session_bus.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "platform/desktop_notifier.h"

namespace corvel::test {

namespace {

// Answers every connection, owns any name, and starts no service: nothing outside the
// test is ever activated.
std::string configuration(const std::string& socket) {
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>session</type>\n"
           "  <listen>unix:path=" +
           socket +
           "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "    <allow own=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
}

// The first line the descriptor gives within the time, without its line feed.
std::string readLine(int fd, int milliseconds) {
    std::string line;
    for (;;) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, milliseconds) <= 0)
            return {};
        char c;
        const ssize_t n = ::read(fd, &c, 1);
        if (n <= 0)
            return {};
        if (c == '\n')
            return line;
        line += c;
    }
}

} // namespace

PrivateSessionBus::PrivateSessionBus() {
    const std::string config = m_folder.file("bus.conf", configuration(m_folder / "bus"));
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        m_why = std::string("no pipe: ") + std::strerror(errno);
        return;
    }
    // The daemon writes its address to descriptor 3; the pipe's own number must differ.
    int writeEnd = pipeFds[1];
    if (writeEnd == 3) {
        writeEnd = ::fcntl(pipeFds[1], F_DUPFD_CLOEXEC, 10);
        ::close(pipeFds[1]);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writeEnd, 3);
    const std::string log = m_folder / "daemon.log";
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string configArgument = "--config-file=" + config;
    const char* argv[] = {"dbus-daemon", configArgument.c_str(), "--nofork",
                          "--nopidfile", "--print-address=3",    nullptr};
    const int spawned =
        ::posix_spawnp(&m_daemon, "dbus-daemon", &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(writeEnd);
    if (spawned != 0) {
        m_daemon = -1;
        ::close(pipeFds[0]);
        m_why = std::string("cannot start dbus-daemon: ") + std::strerror(spawned);
        return;
    }
    m_address = readLine(pipeFds[0], 10000);
    ::close(pipeFds[0]);
    if (m_address.empty())
        m_why = "dbus-daemon gave no address (see " + log + ": " + TempTree::read(log) + ")";
}

PrivateSessionBus::~PrivateSessionBus() {
    if (m_daemon > 0) {
        ::kill(m_daemon, SIGTERM);
        int status = 0;
        while (::waitpid(m_daemon, &status, 0) < 0 && errno == EINTR) {
        }
    }
}

int answerNotificationCall(sd_bus_message* message, FakeNotificationServer& server) {
    FakeNotificationServer* self = &server;
    if (sd_bus_message_is_method_call(message, kNotificationsInterface, "Notify")) {
        const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
        std::uint32_t replaces = 0;
        int r = sd_bus_message_read(message, "susss", &app, &replaces, &icon, &summary, &body);
        RecordedNotification recorded{app ? app : "", summary ? summary : "", body ? body : "", {}};
        if (r >= 0)
            r = sd_bus_message_enter_container(message, 'a', "s");
        const char* action = nullptr;
        while (r >= 0 && (r = sd_bus_message_read(message, "s", &action)) > 0)
            recorded.actions.emplace_back(action);
        if (r >= 0)
            r = sd_bus_message_exit_container(message);
        if (r >= 0)
            r = sd_bus_message_skip(message, "a{sv}i");
        if (r < 0)
            return r;
        std::uint32_t id;
        {
            std::lock_guard lock(self->m_mutex);
            self->m_notifications.push_back(std::move(recorded));
            id = static_cast<std::uint32_t>(self->m_notifications.size());
        }
        return sd_bus_reply_method_return(message, "u", id);
    }
    if (sd_bus_message_is_method_call(message, kNotificationsInterface, "GetCapabilities"))
        return sd_bus_reply_method_return(message, "as", 2, "actions", "body");
    if (sd_bus_message_is_method_call(message, kNotificationsInterface, "GetServerInformation"))
        return sd_bus_reply_method_return(message, "ssss", "fake", "corvel tests", "1", "1.2");
    if (sd_bus_message_is_method_call(message, kNotificationsInterface, "CloseNotification"))
        return sd_bus_reply_method_return(message, "");
    return 0;
}

namespace {

int handleNotificationCall(sd_bus_message* message, void* server, sd_bus_error* /*unused*/) {
    return answerNotificationCall(message, *static_cast<FakeNotificationServer*>(server));
}

} // namespace

FakeNotificationServer::FakeNotificationServer(const std::string& address)
    : m_thread([this, address] { run(address); }) {
    std::unique_lock lock(m_mutex);
    m_started.wait(lock, [this] { return m_startDone; });
}

FakeNotificationServer::~FakeNotificationServer() {
    m_stop = true;
    m_thread.join();
}

std::vector<RecordedNotification> FakeNotificationServer::notifications() const {
    std::lock_guard lock(m_mutex);
    return m_notifications;
}

void FakeNotificationServer::run(const std::string& address) {
    sd_bus* bus = nullptr;
    int r = sd_bus_new(&bus);
    if (r >= 0)
        r = sd_bus_set_address(bus, address.c_str());
    if (r >= 0)
        r = sd_bus_set_bus_client(bus, 1);
    if (r >= 0)
        r = sd_bus_start(bus);
    if (r >= 0)
        r = sd_bus_add_object(bus, nullptr, kNotificationsPath, handleNotificationCall, this);
    if (r >= 0)
        r = sd_bus_request_name(bus, kNotificationsService, 0);
    {
        std::lock_guard lock(m_mutex);
        m_startDone = true;
        m_ready = r >= 0;
        if (r < 0)
            m_why = std::string("the fake notification service could not start: ") + std::strerror(-r);
    }
    m_started.notify_all();
    while (r >= 0 && !m_stop) {
        r = sd_bus_process(bus, nullptr);
        if (r > 0)
            continue;
        if (r >= 0)
            r = sd_bus_wait(bus, std::uint64_t{50} * 1000);
    }
    sd_bus_flush_close_unref(bus);
}

} // namespace corvel::test
