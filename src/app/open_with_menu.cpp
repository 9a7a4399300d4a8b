#include "open_with_menu.h"

#include "desktop_roles.h"
#include "platform/string_tables.h"
#include "platform/text_format.h"

namespace corvel {

namespace {

std::string withVersion(std::string title, const std::string& version) {
    if (!version.empty())
        title += formatf(" (%@)", version);
    return title;
}

} // namespace

std::vector<OpenWithMenuItem> openWithMenuItems(const std::string& path, ApplicationCatalog& catalog) {
    using Kind = OpenWithMenuItem::Kind;
    std::vector<OpenWithMenuItem> items;
    const auto defaultApplication = catalog.defaultApplicationForFile(path);
    if (defaultApplication) {
        items.push_back({Kind::DefaultApplication,
                         withVersion(formatf(localized("MenuItemTitle_DefaultApp"), defaultApplication->name),
                                     defaultApplication->version),
                         defaultApplication->identifier, true});
        items.push_back({});
    }
    bool any = false;
    for (const auto& application : catalog.applicationsForFile(path)) {
        if (defaultApplication && application.identifier == defaultApplication->identifier)
            continue;
        items.push_back({Kind::Application, withVersion(application.name, application.version),
                         application.identifier, true});
        any = true;
    }
    if (!any)
        items.push_back({Kind::None, localized("MenuItemTitle_None"), {}, false});
    items.push_back({});
    items.push_back({Kind::Other, localized("MenuItemTitle_Other"), {}, true});
    return items;
}

} // namespace corvel
