#include "single_instance.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QUrl>
#include <unistd.h>

#include "local_paths.h"

namespace corvel::gui {

QString SingleInstance::defaultSocketPath() {
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir(QString::fromLocal8Bit(runtime)).exists())
        return QString::fromLocal8Bit(runtime) + "/corvel-gui.socket";
    return QDir::tempPath() + QString("/corvel-gui-%1.socket").arg(::getuid());
}

SingleInstance::SingleInstance(QString socketPath, QObject* parent)
    : QObject(parent), m_socketPath(std::move(socketPath)) {
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::takeConnection);
}

QByteArray SingleInstance::encodePaths(const std::vector<std::string>& paths) {
    QByteArray data;
    for (const auto& path : paths)
        data += fileUrlFromPath(path) + "\r\n";
    return data;
}

std::vector<std::string> SingleInstance::decodePaths(const QByteArray& data) {
    std::vector<std::string> paths;
    for (const QByteArray& line : data.split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (trimmed.isEmpty() || trimmed.startsWith('#'))
            continue;
        if (auto path = localPathFromUrl(QUrl::fromEncoded(trimmed)))
            paths.push_back(*path);
    }
    return paths;
}

bool SingleInstance::handOver(const std::vector<std::string>& paths, int timeoutMs) const {
    QLocalSocket socket;
    socket.connectToServer(m_socketPath);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    // The first line says it is a hand-over, so an empty list still arrives as a message.
    socket.write("#corvel-open\r\n" + encodePaths(paths));
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState)
        socket.waitForDisconnected(timeoutMs);
    return true;
}

bool SingleInstance::listen(Handler handler) {
    m_handler = std::move(handler);
    if (m_server.listen(m_socketPath))
        return true;
    if (m_server.serverError() != QAbstractSocket::AddressInUseError)
        return false;
    // Someone answering means another instance runs; a dead socket file is replaced.
    QLocalSocket probe;
    probe.connectToServer(m_socketPath);
    if (probe.waitForConnected(500)) {
        probe.abort();
        return false;
    }
    QLocalServer::removeServer(m_socketPath);
    return m_server.listen(m_socketPath);
}

void SingleInstance::takeConnection() {
    while (QLocalSocket* socket = m_server.nextPendingConnection()) {
        auto buffer = std::make_shared<QByteArray>();
        connect(socket, &QLocalSocket::readyRead, socket, [socket, buffer] { *buffer += socket->readAll(); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket, buffer] {
            *buffer += socket->readAll();
            socket->deleteLater();
            if (buffer->startsWith("#corvel-open") && m_handler)
                m_handler(decodePaths(*buffer));
        });
    }
}

} // namespace corvel::gui
