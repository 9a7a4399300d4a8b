#pragma once
// File paths through Qt without losing a byte: a Linux name need not be valid UTF-8,
// and QString would replace such bytes. Paths travel as file:// URLs whose path is
// percent-encoded byte by byte, and come back as the same bytes. Any thread.

#include <QByteArray>
#include <QUrl>
#include <optional>
#include <string>

namespace corvel::gui {

// The local path a file:// URL names, byte for byte; nothing for other URLs.
inline std::optional<std::string> localPathFromUrl(const QUrl& url) {
    if (!url.isLocalFile())
        return std::nullopt;
    const QByteArray path = QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
    if (path.isEmpty())
        return std::nullopt;
    return path.toStdString();
}

// The file:// URL of a local path, every byte outside the unreserved set and "/" escaped.
inline QByteArray fileUrlFromPath(const std::string& path) {
    return "file://" + QByteArray::fromStdString(path).toPercentEncoding("/");
}

} // namespace corvel::gui
