#pragma once
// LibraryAppDriver: the library applications (photo and music libraries) that remove
// their own items when sent a script. Linux has neither the applications nor their
// scripting: LinuxLibraryAppDriver cannot launch them, so every library item fails with
// the launch error and its file is left untouched. The script texts are still built
// here, exactly, so that they are tested.

#include <optional>
#include <string>

#include "platform/property_value.h"

namespace corvel {

inline constexpr const char* kIPhotoBundleIdentifier = "com.apple.iphoto";
inline constexpr const char* kITunesBundleIdentifier = "com.apple.itunes";
// The script error number of an object the application cannot find.
inline constexpr std::int64_t kScriptErrorCantGet = -1728;
inline constexpr const char* kScriptErrorNumberKey = "NSAppleScriptErrorNumber";

class LibraryAppDriver {
public:
    virtual ~LibraryAppDriver() = default;
    // Starts the application in the background and waits for it; true when it runs.
    virtual bool launchApplication(const std::string& bundleIdentifier) = 0;
    // Runs a script; nothing on success, else the script's error dictionary.
    virtual std::optional<PropertyValue::Dictionary> runScript(const std::string& script) = 0;
};

class LinuxLibraryAppDriver : public LibraryAppDriver {
public:
    bool launchApplication(const std::string& /*bundleIdentifier*/) override { return false; }
    std::optional<PropertyValue::Dictionary> runScript(const std::string& /*script*/) override {
        return PropertyValue::Dictionary{{kLocalizedDescriptionKeyForScripts, "no script runner on Linux"}};
    }
    static constexpr const char* kLocalizedDescriptionKeyForScripts = "NSAppleScriptErrorMessage";
};

// The script that moves a photo to the photo library's trash: "add ... to trash album"
// for library versions before 9.3 (useAdd), "remove ..." after selecting the library
// album otherwise; a video is found by its original path too.
std::string iPhotoTrashScript(const std::string& path, bool useAdd, bool isVideo);
// The script that deletes every track of the music library whose file is at path.
std::string iTunesDeleteScript(const std::string& path);

} // namespace corvel
