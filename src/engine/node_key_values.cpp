#include "node_key_values.h"

#include "folder.h"
#include "group.h"

namespace corvel {

PropertyValue NodeKeyValues::valueForKey(std::string_view key) const {
    const CVFile& f = m_file;
    if (key == "path")
        return PropertyValue(f.path());
    if (key == "name")
        return PropertyValue(f.name());
    if (key == "title")
        return PropertyValue(f.title());
    if (key == "size")
        return PropertyValue(static_cast<unsigned long long>(f.size()));
    if (key == "sizeOnDisk")
        return PropertyValue(static_cast<unsigned long long>(f.sizeOnDisk()));
    if (key == "type")
        return PropertyValue(f.type());
    if (key == "uti")
        return PropertyValue(f.uti());
    if (key == "inodeNumber")
        return PropertyValue(static_cast<unsigned long long>(f.inodeNumber()));
    if (key == "needToRemove")
        return PropertyValue(f.needToRemove());
    if (key == "selectionType")
        return PropertyValue(f.selectionType());
    if (key == "removeForbidden")
        return PropertyValue(f.removeForbidden());
    if (key == "ignore")
        return PropertyValue(f.ignore());
    if (key == "wasRemoved")
        return PropertyValue(f.wasRemoved());
    if (key == "wasRemovedOutside")
        return PropertyValue(f.wasRemovedOutside());
    if (key == "statMTime")
        return PropertyValue(static_cast<long long>(f.statMTime()));
    if (key == "statCTime")
        return PropertyValue(static_cast<long long>(f.statCTime()));
    if (key == "info")
        return f.info();
    if (key == "childrenCount")
        return PropertyValue(static_cast<unsigned long long>(f.childrenCount()));
    if (key == "metaGroupType")
        return PropertyValue(f.parentGroup() ? f.parentGroup()->metaGroupType()
                                             : CVGroup::metaGroupTypeForNodeType(f.type()));
    return {};
}

const KeyValueObject* NodeKeyValues::objectForKey(std::string_view key) const {
    std::shared_ptr<const CVFile> related;
    if (key == "rootFolder")
        related = m_file.rootFolder();
    else if (key == "parentFolder" && m_file.parentFolder())
        related = std::static_pointer_cast<const CVFile>(m_file.parentFolder()->shared_from_this());
    if (!related)
        return nullptr;
    m_keepAlive = related;
    m_related = std::make_unique<NodeKeyValues>(*related);
    return m_related.get();
}

} // namespace corvel
