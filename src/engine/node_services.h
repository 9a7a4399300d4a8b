#pragma once
// CVNodeServices: what a node asks of the rest of the system. The type generator types a
// file by its name when the type is first asked for, the media manager answers the record
// of a file inside a photo or music library, and the node cache memoises the folder
// comparisons of one scan.
//
// Whoever makes a tree of nodes hands its services to the tree's top node (the scan's
// hierarchy does, for every root it walks); a node finds them through its folders, up to
// the first one that carries services, so a file node costs nothing more. A node under no
// such folder uses defaultNodeServices(): the process's shared generator, media manager and
// cache. Tests and applications pass their own, as a seeded or fake service.
//
// The referred objects must outlive every node that carries the services; the services
// object itself is shared by the nodes. Set before the node is seen by another thread.

#include <memory>

namespace corvel {

class CVNodeCache;
class CVNodeTypeGenerator;
class CViMediaManager;

struct CVNodeServices {
    CVNodeTypeGenerator& typeGenerator;
    CViMediaManager& mediaManager;
    CVNodeCache& nodeCache;
};

using NodeServicesPtr = std::shared_ptr<const CVNodeServices>;

// The shared type generator, media manager and node cache; made once.
const NodeServicesPtr& defaultNodeServices();

} // namespace corvel
