#include "string_tables.h"

#include <memory>
#include <unicode/plurrule.h>

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

namespace {

// The text a table's value holds: the value itself, or of plural forms the one of the
// category, else the "other" one; the key when there is none.
std::string textOf(const PropertyValue& value, const std::string& category, std::string_view key) {
    if (!value.isDictionary())
        return value.isString() ? *value.asString() : std::string(key);
    for (const std::string& form : {category, std::string("other")})
        if (const PropertyValue& text = value[form]; text.isString())
            return *text.asString();
    return std::string(key);
}

// The plural category of count in English ("one", "other"), by ICU's rules.
std::string pluralCategory(std::uint64_t count) {
    static const std::unique_ptr<icu::PluralRules> rules = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::PluralRules> made(
            icu::PluralRules::forLocale(icu::Locale::getEnglish(), status));
        return U_SUCCESS(status) ? std::move(made) : nullptr;
    }();
    if (!rules)
        return count == 1 ? "one" : "other";
    std::string category;
    rules->select(static_cast<double>(count)).toUTF8String(category);
    return category;
}

} // namespace

std::string StringTables::localizedString(std::string_view key, std::string_view table) {
    return textOf(localizedValue(key, table), "other", key);
}

std::string StringTables::localizedString(std::string_view key, std::uint64_t count, std::string_view table) {
    return textOf(localizedValue(key, table), pluralCategory(count), key);
}

std::string localizedCount(std::string_view key, std::uint64_t count, std::string_view table) {
    return StringTables::shared().localizedString(key, count, table);
}

std::string localized(std::string_view key, std::string_view table) {
    return StringTables::shared().localizedString(key, table);
}

} // namespace corvel
