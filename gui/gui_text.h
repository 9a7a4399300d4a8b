#pragma once
// Texts of the window: every visible string is a key of the string tables in
// resources/en.lproj ("Localizable" by default, "Buttons", "Window" for the window's own
// labels). Any thread.

#include <QString>
#include <string>
#include <string_view>

#include "platform/string_tables.h"

namespace corvel::gui {

inline QString qs(const std::string& text) {
    return QString::fromStdString(text);
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
