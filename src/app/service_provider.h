#pragma once
// CVServiceProvider: the file manager's "Scan with Corvel" entry. The request carries the
// chosen items as a file-name list; they go to the application controller's
// checkAndAddFoldersForScan 0.7 seconds later (the application finishes activating
// first). Main thread.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "main_timers.h"

namespace corvel {

// The pasteboard type that carries a list of files (paths, one per item).
inline constexpr const char* kFilenamesPboardType = "text/uri-list";
inline constexpr auto kFolderHandOverDelay = std::chrono::milliseconds(700);

// What the request hands over: the types it offers and, when it offers a file list, the list.
struct ServicePasteboard {
    std::vector<std::string> types;
    std::optional<std::vector<std::string>> fileNames;
};

class CVServiceProvider {
public:
    using HandOver = std::function<void(const std::vector<std::string>&)>;

    // applicationFound answers whether the program that serves the entry can be found.
    CVServiceProvider(HandOver handOver, MainTimers& timers, std::function<bool()> applicationFound);

    // Answers true when the request was taken (an empty list is taken and only logged);
    // otherwise false with the text the desktop shows in *error.
    [[nodiscard]] bool scanFolder(const ServicePasteboard& pasteboard, std::string* error);

private:
    HandOver m_handOver;
    MainTimers& m_timers;
    std::function<bool()> m_applicationFound;
};

} // namespace corvel
