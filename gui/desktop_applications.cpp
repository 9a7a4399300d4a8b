#include "desktop_applications.h"

#include <QDesktopServices>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QInputDialog>
#include <QMimeDatabase>
#include <QProcess>
#include <QTextStream>
#include <QUrl>

#include "gui_text.h"
#include "platform/system_log.h"

namespace corvel::gui {

namespace {

QStringList dataDirs() {
    QStringList dirs;
    const QString home = qEnvironmentVariable("XDG_DATA_HOME", QDir::homePath() + "/.local/share");
    dirs << home;
    const QString system = qEnvironmentVariable("XDG_DATA_DIRS");
    dirs << (system.isEmpty() ? QStringLiteral("/usr/local/share:/usr/share") : system)
                .split(':', Qt::SkipEmptyParts);
    return dirs;
}

QStringList configDirs() {
    QStringList dirs;
    dirs << qEnvironmentVariable("XDG_CONFIG_HOME", QDir::homePath() + "/.config");
    const QString system = qEnvironmentVariable("XDG_CONFIG_DIRS");
    dirs << (system.isEmpty() ? QStringLiteral("/etc/xdg") : system).split(':', Qt::SkipEmptyParts);
    return dirs;
}

// The key = value lines of one [group] of an ini-like file.
std::map<QString, QString> readGroup(const QString& file, const QString& group) {
    std::map<QString, QString> values;
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly | QIODevice::Text))
        return values;
    QTextStream stream(&in);
    bool inGroup = false;
    while (!stream.atEnd()) {
        const QString line = stream.readLine().trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (line.startsWith('[')) {
            inGroup = line == "[" + group + "]";
            continue;
        }
        const qsizetype eq = line.indexOf('=');
        if (inGroup && eq > 0) {
            const QString key = line.left(eq).trimmed();
            if (!values.count(key))
                values[key] = line.mid(eq + 1).trimmed();
        }
    }
    return values;
}

QUrl urlFor(const std::string& path) {
    const QString text = QString::fromStdString(path);
    if (text.startsWith("http://") || text.startsWith("https://"))
        return QUrl(text);
    return fileUrl(path);
}

} // namespace

std::optional<DesktopApplications::Entry> DesktopApplications::parseEntry(const QString& file,
                                                                          const QString& id) {
    auto values = readGroup(file, "Desktop Entry");
    if (values["Type"] != "Application" || values["Hidden"] == "true" || values["Exec"].isEmpty() ||
        values["Name"].isEmpty())
        return std::nullopt;
    Entry entry;
    entry.id = id;
    entry.name = values["Name"];
    entry.exec = values["Exec"];
    entry.mimeTypes = values["MimeType"].split(';', Qt::SkipEmptyParts);
    entry.noDisplay = values["NoDisplay"] == "true";
    return entry;
}

QStringList DesktopApplications::commandFor(const QString& exec, const QString& path) {
    const QString url = QString::fromUtf8(QUrl::fromLocalFile(path).toEncoded());
    QStringList command;
    bool placed = false;
    for (const QString& argument : QProcess::splitCommand(exec)) {
        if (argument == "%f" || argument == "%F") {
            command << path;
            placed = true;
        } else if (argument == "%u" || argument == "%U") {
            command << url;
            placed = true;
        } else if (argument == "%i" || argument == "%c" || argument == "%k") {
            continue;
        } else {
            QString copy = argument;
            copy.replace("%%", "%");
            command << copy;
        }
    }
    if (!placed)
        command << path;
    return command;
}

void DesktopApplications::load() {
    if (m_loaded)
        return;
    m_loaded = true;
    for (const QString& dir : dataDirs()) {
        const QString root = dir + "/applications";
        QDirIterator it(root, {"*.desktop"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = it.next();
            QString id = file.mid(root.size() + 1);
            id.replace('/', '-');
            if (m_entries.count(id))
                continue;
            if (auto entry = parseEntry(file, id))
                m_entries.emplace(id, std::move(*entry));
        }
    }
    QStringList lists;
    for (const QString& dir : configDirs())
        lists << dir + "/mimeapps.list";
    for (const QString& dir : dataDirs())
        lists << dir + "/applications/mimeapps.list";
    for (const QString& list : lists)
        for (const auto& [type, ids] : readGroup(list, "Default Applications"))
            for (const QString& id : ids.split(';', Qt::SkipEmptyParts))
                m_defaults[type] << id;
}

QStringList DesktopApplications::typesOf(const std::string& path) const {
    QMimeDatabase db;
    const QMimeType type = db.mimeTypeForFile(QFile::decodeName(QByteArray::fromStdString(path)));
    QStringList types{type.name()};
    types << type.aliases() << type.allAncestors();
    return types;
}

std::optional<ApplicationInfo> DesktopApplications::defaultApplicationForFile(const std::string& path) {
    load();
    const QStringList types = typesOf(path);
    for (const QString& type : types) {
        auto found = m_defaults.find(type);
        if (found == m_defaults.end())
            continue;
        for (const QString& id : found->second)
            if (auto entry = m_entries.find(id); entry != m_entries.end())
                return ApplicationInfo{id.toStdString(), entry->second.name.toStdString(), {}};
    }
    const auto all = applicationsForFile(path);
    return all.empty() ? std::nullopt : std::optional<ApplicationInfo>(all.front());
}

std::vector<ApplicationInfo> DesktopApplications::applicationsForFile(const std::string& path) {
    load();
    const QStringList types = typesOf(path);
    std::vector<ApplicationInfo> apps;
    for (const auto& [id, entry] : m_entries) {
        bool opens = false;
        for (const QString& type : types)
            opens = opens || entry.mimeTypes.contains(type);
        if (opens && !entry.noDisplay)
            apps.push_back({id.toStdString(), entry.name.toStdString(), {}});
    }
    std::sort(apps.begin(), apps.end(), [](const auto& a, const auto& b) {
        return QString::localeAwareCompare(qs(a.name), qs(b.name)) < 0;
    });
    return apps;
}

bool DesktopApplications::openFile(const std::string& path, const std::string& applicationIdentifier) {
    if (applicationIdentifier.empty())
        return QDesktopServices::openUrl(urlFor(path));
    load();
    const auto entry = m_entries.find(qs(applicationIdentifier));
    if (entry == m_entries.end())
        return false;
    const QStringList command =
        commandFor(entry->second.exec, QFile::decodeName(QByteArray::fromStdString(path)));
    if (command.isEmpty())
        return false;
    return QProcess::startDetached(command.front(), command.mid(1));
}

void DesktopApplications::chooseApplicationForFile(const std::string& path) {
    load();
    QStringList names;
    std::vector<QString> ids;
    for (const auto& [id, entry] : m_entries) {
        if (entry.noDisplay)
            continue;
        names << entry.name;
        ids.push_back(id);
    }
    bool ok = false;
    const QString chosen = QInputDialog::getItem(m_parent, windowText("OpenWith_Title"),
                                                 windowText("OpenWith_Prompt"), names, 0, false, &ok);
    const qsizetype index = names.indexOf(chosen);
    if (!ok || index < 0)
        return;
    if (!openFile(path, ids[static_cast<std::size_t>(index)].toStdString()))
        systemLogf("Could not open %@ with %@", path, ids[static_cast<std::size_t>(index)].toStdString());
}

bool DesktopApplications::isApplicationInstalled(const std::string& identifier) {
    load();
    return m_entries.count(qs(identifier)) || m_entries.count(qs(identifier + ".desktop"));
}

} // namespace corvel::gui
