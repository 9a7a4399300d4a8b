#include "node_services.h"

#include "media/media_manager.h"
#include "node_cache.h"
#include "node_type_generator.h"

namespace corvel {

const NodeServicesPtr& defaultNodeServices() {
    static const NodeServicesPtr services = std::make_shared<const CVNodeServices>(
        CVNodeServices{CVNodeTypeGenerator::sharedGenerator(), CViMediaManager::sharedInstance(),
                       CVNodeCache::sharedCache()});
    return services;
}

} // namespace corvel
