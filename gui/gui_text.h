#pragma once
// Texts of the window: every visible string is a key of the string tables in
// resources/en.lproj ("Localizable" by default, "Buttons", "Window" for the window's own
// labels). Any thread.

#include <QString>
#include <QUrl>
#include <string>
#include <string_view>

#include "platform/file_url.h"
#include "platform/string_tables.h"

namespace corvel::gui {

inline QString qs(const std::string& text) {
    return QString::fromStdString(text);
}
// The file URL of a path, built from its bytes: a name that is not UTF-8 keeps them
// (%E9), where a QString would turn them into U+FFFD and name another file.
inline QUrl fileUrl(const std::string& path) {
    return QUrl::fromEncoded(QByteArray::fromStdString(fileURLStringFromPath(path)));
}
inline QString text(std::string_view key, std::string_view table = "Localizable") {
    return qs(localized(key, table));
}
inline QString buttonText(std::string_view key) {
    return text(key, "Buttons");
}
// The window's own labels, menu titles and panels.
inline QString windowText(std::string_view key) {
    return text(key, "Window");
}

} // namespace corvel::gui
