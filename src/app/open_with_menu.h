#pragma once
// The "Open With" menu of a file, as a list of items the face turns into a menu: the
// default application ("MenuItemTitle_DefaultApp" with its name, and " (%@)" with its
// version when known), a separator, the other applications able to open the file (or a
// disabled "MenuItemTitle_None" when there are none), a separator and "MenuItemTitle_Other",
// which lets the user choose any application. Main thread.

#include <string>
#include <vector>

namespace corvel {

class ApplicationCatalog;

struct OpenWithMenuItem {
    enum class Kind { DefaultApplication, Application, None, Separator, Other };
    Kind kind = Kind::Separator;
    std::string title;
    std::string applicationIdentifier; // the applications' items only
    bool enabled = true;
    friend bool operator==(const OpenWithMenuItem&, const OpenWithMenuItem&) = default;
};

std::vector<OpenWithMenuItem> openWithMenuItems(const std::string& path, ApplicationCatalog& catalog);

} // namespace corvel
