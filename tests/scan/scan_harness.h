#pragma once
// The services a scan needs, on a private settings store and the shipped ignore list,
// with node services of its own (no shared generator, media manager or cache).

#include <memory>
#include <string>

#include "engine/node_cache.h"
#include "engine/node_services.h"
#include "engine/node_type_generator.h"
#include "media/media_manager.h"
#include "platform/resources.h"
#include "platform/user_defaults.h"
#include "scan/duplicates_locator.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "support/recording_tracker.h"
#include "support/temp_tree.h"

namespace corvel::test {

struct ScanHarness {
    TempTree settings;
    UserDefaults defaults{settings / "settings.plist"};
    RecordingTracker tracker;
    CVNodeTypeGenerator generator{defaults, settings / "home", settings / "home"};
    CVPreferences preferences{defaults, tracker};
    CVIgnoreList ignoreList{defaults, resourcePath("IgnoreList.plist"),
                            CVIgnoreList::Environment{settings / "home", settings / "home", nullptr},
                            generator};

    CViMediaManager media{defaults};
    CVNodeCache cache;
    NodeServicesPtr nodes = std::make_shared<const CVNodeServices>(CVNodeServices{generator, media, cache});

    CVDuplicatesLocator::Services services() { return {ignoreList, preferences, defaults, nodes}; }
    CVFilesHierarchy::Services hierarchyServices() { return {ignoreList, preferences, nodes}; }

    std::unique_ptr<CVDuplicatesLocator> locator() {
        auto l = std::make_unique<CVDuplicatesLocator>(services());
        l->setProgressPauses(false);
        return l;
    }
    // A walked hierarchy of the roots (not yet searched).
    std::unique_ptr<CVFilesHierarchy> walk(const std::vector<std::string>& roots, CVNodeDelegate* delegate) {
        std::vector<CVScanPath> paths;
        for (const auto& r : roots)
            paths.push_back({r, false});
        auto h = std::make_unique<CVFilesHierarchy>(paths, hierarchyServices());
        h->setNodeDelegate(delegate);
        h->rescan();
        return h;
    }
};

} // namespace corvel::test
