#pragma once
// String tables: every text the user sees is a key looked up here. The tables are XML
// property-list dictionaries in resources/en.lproj: "Localizable" (the default),
// "Buttons", "Scenarios" and "LocalizedPrefs". A key that no table holds shows as itself.
// The tables are English; a text that counts may come in plural forms.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "property_value.h"

namespace corvel {

class StringTables {
public:
    // The tables in resourceDirectory()/en.lproj.
    static StringTables& shared();
    // Tables read from another folder (tests, translations).
    explicit StringTables(std::string folder);

    // The text for the key in the table (of plural forms, the "other" one); the key itself
    // when absent. A table that cannot be read is logged once and treated as empty. Any
    // thread.
    std::string localizedString(std::string_view key, std::string_view table = "Localizable");
    // The text for a count: a key whose value is a dictionary holds one text per plural
    // category of the tables' language ("one", "other"; ICU's plural rules choose), else
    // the text as localizedString gives it. A dictionary without the category gives its
    // "other" text. Any thread.
    std::string localizedString(std::string_view key, std::uint64_t count,
                                std::string_view table = "Localizable");
    // The raw value (a table may hold arrays or numbers, as "LocalizedPrefs" does).
    PropertyValue localizedValue(std::string_view key, std::string_view table = "Localizable");

private:
    const PropertyValue& tableLocked(std::string_view table);

    std::string m_folder;
    std::mutex m_mutex;
    std::map<std::string, PropertyValue, std::less<>> m_tables;
};

// Shorthand for StringTables::shared().localizedString(key, table).
std::string localized(std::string_view key, std::string_view table = "Localizable");
// Shorthand for StringTables::shared().localizedString(key, count, table).
std::string localizedCount(std::string_view key, std::uint64_t count, std::string_view table = "Localizable");

} // namespace corvel
