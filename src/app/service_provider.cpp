#include "service_provider.h"

#include <algorithm>
#include <exception>

#include "platform/property_value.h"
#include "platform/system_log.h"

namespace corvel {

CVServiceProvider::CVServiceProvider(HandOver handOver, MainTimers& timers,
                                     std::function<bool()> applicationFound)
    : m_handOver(std::move(handOver)), m_timers(timers), m_applicationFound(std::move(applicationFound)) {}

bool CVServiceProvider::scanFolder(const ServicePasteboard& pasteboard, std::string* error) {
    try {
        const bool offersFiles = std::find(pasteboard.types.begin(), pasteboard.types.end(),
                                           kFilenamesPboardType) != pasteboard.types.end();
        if (!offersFiles || !pasteboard.fileNames) {
            if (error)
                *error = "Error: Pasteboard doesn't contain a folder path.";
            return false;
        }
        if (!m_applicationFound || !m_applicationFound()) {
            if (error)
                *error = "Error: Couldn't find Corvel. You should install Corvel to use this service";
            return false;
        }
        const std::vector<std::string> files = *pasteboard.fileNames;
        if (files.empty()) {
            systemLog("Nothing to scan with Corvel");
            return true;
        }
        PropertyValue::Array list(files.begin(), files.end());
        systemLogf("Folders to scan: %@", PropertyValue(list));
        m_timers.scheduleTimer(kFolderHandOverDelay, [handOver = m_handOver, files] { handOver(files); });
        return true;
    } catch (const std::exception& e) {
        systemLogf("Error while processing services request: %@", e.what());
        return false;
    }
}

} // namespace corvel
