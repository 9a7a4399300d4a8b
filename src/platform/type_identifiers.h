#pragma once
// Type identifiers ("public.jpeg", "public.image", ...): a shipped table from file-name
// extension to identifier, and from identifier to the identifiers it conforms to.

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "error.h"

namespace corvel {

class TypeIdentifiers {
public:
    // The table in resourceDirectory()/TypeIdentifiers.json; loaded once, thread-safe.
    // A missing or malformed table is logged and leaves an empty table (every file is
    // then plain data).
    static const TypeIdentifiers& shared();

    // Loads a table file; answers false with *error when it cannot be read or parsed.
    [[nodiscard]] bool load(const std::string& path, CVError* error);

    // The identifier for an extension (without the dot, any case). An unknown extension
    // gives "dyn.<extension in lower case>", which conforms to public.data; an empty one "public.data".
    std::string preferredIdentifierForExtension(std::string_view extension) const;

    // True when identifier is parent or reaches it through the conformance relation.
    bool conformsTo(std::string_view identifier, std::string_view parent) const;

    std::size_t extensionCount() const { return m_extensions.size(); }

private:
    std::map<std::string, std::string, std::less<>> m_extensions;
    std::map<std::string, std::vector<std::string>, std::less<>> m_parents;
};

} // namespace corvel
