#include "type_identifiers.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "file_io.h"
#include "resources.h"
#include "system_log.h"
#include "text.h"

namespace corvel {

namespace {

constexpr std::string_view kDynamicPrefix = "dyn.";

} // namespace

const TypeIdentifiers& TypeIdentifiers::shared() {
    static const TypeIdentifiers table = [] {
        TypeIdentifiers t;
        CVError error;
        if (!t.load(resourcePath("TypeIdentifiers.json"), &error))
            systemLog("Failed to load the type identifier table: " + error.localizedDescription());
        return t;
    }();
    return table;
}

bool TypeIdentifiers::load(const std::string& path, CVError* error) {
    std::string text;
    if (!readFileContents(path, text, std::size_t{16} << 20, error))
        return false;
    const nlohmann::json doc = nlohmann::json::parse(text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object() || !doc.contains("extensions") ||
        !doc.contains("conformsTo") || !doc["extensions"].is_object() || !doc["conformsTo"].is_object()) {
        setError(error, CVError(kCorvelFileErrorDomain, 1, path + ": not a type identifier table"));
        return false;
    }
    m_extensions.clear();
    m_parents.clear();
    for (const auto& [ext, id] : doc["extensions"].items())
        if (id.is_string())
            m_extensions[asciiLowercase(ext)] = id.get<std::string>();
    for (const auto& [id, parents] : doc["conformsTo"].items()) {
        auto& list = m_parents[id];
        if (parents.is_array())
            for (const auto& p : parents)
                if (p.is_string())
                    list.push_back(p.get<std::string>());
    }
    return true;
}

std::string TypeIdentifiers::preferredIdentifierForExtension(std::string_view extension) const {
    if (extension.empty())
        return "public.data";
    const std::string lower = asciiLowercase(extension);
    auto it = m_extensions.find(lower);
    if (it != m_extensions.end())
        return it->second;
    return std::string(kDynamicPrefix) + lower;
}

bool TypeIdentifiers::conformsTo(std::string_view identifier, std::string_view parent) const {
    if (identifier == parent)
        return true;
    if (identifier.starts_with(kDynamicPrefix))
        return parent == "public.data" || parent == "public.item";
    // Breadth-first over the relation; the table is small and may share parents.
    std::vector<std::string_view> pending{identifier};
    std::set<std::string_view> seen{identifier};
    while (!pending.empty()) {
        const std::string_view current = pending.back();
        pending.pop_back();
        auto it = m_parents.find(current);
        if (it == m_parents.end())
            continue;
        for (const auto& p : it->second) {
            if (p == parent)
                return true;
            if (seen.insert(p).second)
                pending.push_back(p);
        }
    }
    return false;
}

} // namespace corvel
