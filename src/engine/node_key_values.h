#pragma once
// NodeKeyValues: a scanned file seen as a key-value object, so predicates can filter
// and select files ("needToRemove == YES", "rootFolder.type == 11", "info[SIZE] > 0",
// "path BEGINSWITH[c] %@"). Made on the stack around a file; the file must outlive it.
//
// Keys: path, name, title, size, sizeOnDisk, type, uti, inodeNumber, needToRemove,
// selectionType, removeForbidden, ignore, wasRemoved, wasRemovedOutside, statMTime,
// statCTime, info, metaGroupType (the category of the file's group, or of its own type),
// childrenCount; related objects: rootFolder, parentFolder.

#include <memory>
#include <string_view>

#include "platform/key_value.h"

namespace corvel {

class CVFile;

class NodeKeyValues : public KeyValueObject {
public:
    explicit NodeKeyValues(const CVFile& file) : m_file(file) {}
    PropertyValue valueForKey(std::string_view key) const override;
    const KeyValueObject* objectForKey(std::string_view key) const override;

private:
    const CVFile& m_file;
    mutable std::unique_ptr<NodeKeyValues> m_related;
    mutable std::shared_ptr<const CVFile> m_keepAlive;
};

} // namespace corvel
