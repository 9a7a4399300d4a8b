#pragma once
// SingleInstance: one running corvel-gui per user session. The first launch listens on a
// local socket ($XDG_RUNTIME_DIR/corvel-gui.socket, else corvel-gui-<uid> in the temporary
// folder); a later launch connects, sends the folders it was given as a text/uri-list
// (one file:// URL a line, so any byte of a name travels) and exits. The running
// instance hands the paths to its handler, an empty list meaning "come to the front".
// GUI thread.

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <functional>
#include <string>
#include <vector>

namespace corvel::gui {

class SingleInstance final : public QObject {
public:
    using Handler = std::function<void(const std::vector<std::string>& paths)>;

    // The socket this user's instances meet at.
    static QString defaultSocketPath();

    explicit SingleInstance(QString socketPath, QObject* parent = nullptr);

    // Sends the paths to a running instance; true when one took them (this launch should
    // then exit). Waits at most timeoutMs for the other side.
    bool handOver(const std::vector<std::string>& paths, int timeoutMs = 2000) const;
    // Starts listening; a socket left by a crashed instance (nobody answers) is replaced.
    // False when another instance is listening or the socket cannot be made.
    bool listen(Handler handler);
    bool isListening() const { return m_server.isListening(); }

    static QByteArray encodePaths(const std::vector<std::string>& paths);
    static std::vector<std::string> decodePaths(const QByteArray& data);

private:
    void takeConnection();

    QString m_socketPath;
    QLocalServer m_server;
    Handler m_handler;
};

} // namespace corvel::gui
