#include "media_library.h"

namespace corvel {

void RecordIndex::setRecords(std::vector<PropertyValue> records, std::string_view pathKey) {
    m_records = std::move(records);
    m_byPath.clear();
    m_byPath.reserve(m_records.size());
    for (std::size_t i = 0; i < m_records.size(); ++i)
        if (const std::string* path = m_records[i][pathKey].asString())
            m_byPath.emplace(*path, i);
}

PropertyValue RecordIndex::recordForPath(std::string_view path) const {
    auto it = m_byPath.find(std::string(path));
    return it == m_byPath.end() ? PropertyValue() : m_records[it->second];
}

} // namespace corvel
