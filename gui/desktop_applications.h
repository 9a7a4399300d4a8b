#pragma once
// DesktopApplications: the applications installed on this desktop, read from the
// freedesktop desktop entries ($XDG_DATA_HOME/applications, then each of
// $XDG_DATA_DIRS/applications; an entry of the same id found earlier wins), with the
// defaults of mimeapps.list ($XDG_CONFIG_HOME, $XDG_CONFIG_DIRS, then the data folders).
// A file's applications are those whose MimeType lists the file's type or one it
// inherits from. Hidden entries and entries without Exec are left out. Opening runs the
// entry's Exec line with the file (field codes %f %F %u %U); nothing is ever written.
// GUI thread; the entries are read once, when first needed.

#include <QString>
#include <QStringList>
#include <QWidget>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "app/desktop_roles.h"

namespace corvel::gui {

class DesktopApplications final : public ApplicationCatalog {
public:
    struct Entry {
        QString id;
        QString name;
        QString exec;
        QStringList mimeTypes;
        bool noDisplay = false;
    };

    // parent: the window the "Other…" chooser belongs to (may be null).
    explicit DesktopApplications(QWidget* parent = nullptr) : m_parent(parent) {}

    std::optional<ApplicationInfo> defaultApplicationForFile(const std::string& path) override;
    std::vector<ApplicationInfo> applicationsForFile(const std::string& path) override;
    bool openFile(const std::string& path, const std::string& applicationIdentifier = {}) override;
    void chooseApplicationForFile(const std::string& path) override;
    bool isApplicationInstalled(const std::string& identifier) override;

    // One desktop entry file's [Desktop Entry] group; nothing for a file that is not an
    // application entry or is hidden.
    static std::optional<Entry> parseEntry(const QString& file, const QString& id);
    // The Exec line with the field codes replaced for the file, split into arguments.
    static QStringList commandFor(const QString& exec, const QString& path);

private:
    void load();
    QStringList typesOf(const std::string& path) const;

    QWidget* m_parent;
    bool m_loaded = false;
    std::map<QString, Entry> m_entries;
    // Type -> desktop ids, in the order of preference.
    std::map<QString, QStringList> m_defaults;
};

} // namespace corvel::gui
