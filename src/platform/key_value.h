#pragma once
// Key-value access for predicates and sorting: an object answers values for its keys,
// and may hand over a related object for a key so that key paths ("rootFolder.type")
// can walk from one object to the next.

#include <string_view>

#include "property_value.h"

namespace corvel {

class KeyValueObject {
public:
    virtual ~KeyValueObject() = default;
    // The value for one key; null when the object has no such key.
    virtual PropertyValue valueForKey(std::string_view key) const = 0;
    // The related object for a key, or nullptr when the key names a plain value.
    virtual const KeyValueObject* objectForKey(std::string_view /*key*/) const { return nullptr; }
};

// A dictionary value seen as an object: its keys are its members.
class DictionaryObject : public KeyValueObject {
public:
    explicit DictionaryObject(PropertyValue dictionary) : m_dictionary(std::move(dictionary)) {}
    PropertyValue valueForKey(std::string_view key) const override { return m_dictionary[key]; }

private:
    PropertyValue m_dictionary;
};

} // namespace corvel
