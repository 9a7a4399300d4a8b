#include "string_tables.h"

#include "property_list.h"
#include "resources.h"
#include "system_log.h"

namespace corvel {

StringTables& StringTables::shared() {
    static StringTables tables(resourcePath("en.lproj"));
    return tables;
}

StringTables::StringTables(std::string folder) : m_folder(std::move(folder)) {}

const PropertyValue& StringTables::tableLocked(std::string_view table) {
    auto it = m_tables.find(table);
    if (it != m_tables.end())
        return it->second;
    PropertyValue loaded;
    CVError error;
    const std::string path = m_folder + "/" + std::string(table) + ".strings";
    if (!readPropertyListFile(path, loaded, &error)) {
        systemLog("Error opening string table " + std::string(table) + ": " + error.localizedDescription());
        loaded = PropertyValue::Dictionary{};
    } else if (!loaded.isDictionary()) {
        systemLog("String table " + path + " is not a dictionary");
        loaded = PropertyValue::Dictionary{};
    }
    return m_tables.emplace(std::string(table), std::move(loaded)).first->second;
}

PropertyValue StringTables::localizedValue(std::string_view key, std::string_view table) {
    std::lock_guard lock(m_mutex);
    return tableLocked(table)[key];
}

std::string StringTables::localizedString(std::string_view key, std::string_view table) {
    const PropertyValue value = localizedValue(key, table);
    return value.isString() ? *value.asString() : std::string(key);
}

std::string localized(std::string_view key, std::string_view table) {
    return StringTables::shared().localizedString(key, table);
}

} // namespace corvel
