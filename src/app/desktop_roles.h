#pragma once
// What the results and the collector ask of the desktop: showing items in the file
// manager, the applications that open a file, and the preview panel. The desktop
// application implements them (the file manager over
// org.freedesktop.FileManager1.ShowItems, falling back to opening the parent folder);
// tests give fakes. Main thread.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"

namespace corvel {

class FileRevealing {
public:
    virtual ~FileRevealing() = default;
    // Shows the items selected in the file manager.
    virtual void revealInFileManager(const std::vector<std::string>& paths) = 0;
};

struct ApplicationInfo {
    std::string identifier; // the desktop entry's id ("org.gnome.eog.desktop")
    std::string name;
    std::string version; // empty when unknown
};

class ApplicationCatalog {
public:
    virtual ~ApplicationCatalog() = default;
    virtual std::optional<ApplicationInfo> defaultApplicationForFile(const std::string& path) = 0;
    // The other applications able to open the file, the default one excluded.
    virtual std::vector<ApplicationInfo> applicationsForFile(const std::string& path) = 0;
    // Opens the file (or a web address) with its default application, or with the one named.
    virtual bool openFile(const std::string& path, const std::string& applicationIdentifier = {}) = 0;
    // Lets the user choose any application to open the file with (the Other... item).
    virtual void chooseApplicationForFile(const std::string& path) = 0;
    // Whether an application with this identifier is installed.
    virtual bool isApplicationInstalled(const std::string& identifier) = 0;
};

class PreviewPanel {
public:
    virtual ~PreviewPanel() = default;
    // Shows the items in the preview panel; false with *error when the panel failed.
    [[nodiscard]] virtual bool showPreview(const std::vector<std::string>& paths, CVError* error) = 0;
    virtual void closePreview() = 0;
};

// Telling others what a cleanup freed. The desktop application offers the sentence to
// copy or to hand to a sharing application (the collector view closes it with
// closeSharingWindow); nothing is sent anywhere by Corvel itself.
class SharingService {
public:
    virtual ~SharingService() = default;
    virtual void shareRecoveredSpace(std::uint64_t freedBytes, std::uint64_t lastCleanedSize,
                                     bool iPhotoWasLaunched, bool iTunesWasLaunched) = 0;
};

} // namespace corvel
