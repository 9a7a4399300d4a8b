#pragma once
// UserDefaults: the user-defaults store. One XML property-list file holds the user's
// settings as a top-level dictionary keyed by the defaults names ("MinScanSize",
// "IgnoreList", ...). Registered defaults answer reads of keys the file does not hold
// and are never written. Observers of a key hear of every real change of its value
// (the file value, or the registered default when there is none), with the old and the
// new value, on the main queue. All methods may be called from any thread.
//
// The file is written by synchronize (and when the store is destroyed with unsaved
// changes) atomically, so a crash leaves the old file or the new one. A file that
// cannot be parsed, or whose top level is not a dictionary, is renamed aside with a
// ".corrupt" suffix, logged, and the store starts empty: it is never overwritten.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "error.h"
#include "property_value.h"

namespace corvel {

class UserDefaults {
public:
    using ObserverId = std::uint64_t;
    using Observer = std::function<void(const PropertyValue& oldValue, const PropertyValue& newValue)>;

    // Opens the store backed by the file at path (which need not exist yet).
    explicit UserDefaults(std::string path);
    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The file the shared store uses: $CORVEL_SETTINGS when set, otherwise
    // $XDG_CONFIG_HOME/corvel/com.halvik.Corvel.plist (~/.config when XDG_CONFIG_HOME is unset).
    static std::string defaultPath();
    // The process-wide store; made on first use at the path given to setStandardPath,
    // or at defaultPath. setStandardPath has effect only before the first use.
    static UserDefaults& standardUserDefaults();
    static void setStandardPath(std::string path);

    const std::string& path() const { return m_path; }

    // The stored value, else the registered default, else null.
    PropertyValue objectForKey(std::string_view key) const;
    bool boolForKey(std::string_view key) const { return objectForKey(key).toBool(); }
    std::int64_t integerForKey(std::string_view key) const { return objectForKey(key).toInt64(); }
    std::uint64_t unsignedIntegerForKey(std::string_view key) const { return objectForKey(key).toUInt64(); }
    double doubleForKey(std::string_view key) const { return objectForKey(key).toDouble(); }
    float floatForKey(std::string_view key) const { return static_cast<float>(doubleForKey(key)); }
    // Typed reads of container and text values answer nothing when the value has another type.
    std::optional<std::string> stringForKey(std::string_view key) const;
    std::optional<PropertyValue::Array> arrayForKey(std::string_view key) const;
    std::optional<PropertyValue::Dictionary> dictionaryForKey(std::string_view key) const;
    std::optional<PropertyValue::Data> dataForKey(std::string_view key) const;
    std::optional<PropertyDate> dateForKey(std::string_view key) const;

    // Stores a value; a null value removes the key.
    void setObject(PropertyValue value, std::string_view key);
    void setBool(bool value, std::string_view key) { setObject(PropertyValue(value), key); }
    void setInteger(std::int64_t value, std::string_view key) {
        setObject(PropertyValue(static_cast<long long>(value)), key);
    }
    void setUnsignedInteger(std::uint64_t value, std::string_view key) {
        setObject(PropertyValue(static_cast<unsigned long long>(value)), key);
    }
    void setDouble(double value, std::string_view key) { setObject(PropertyValue(value), key); }
    void setFloat(float value, std::string_view key) {
        setObject(PropertyValue(static_cast<double>(value)), key);
    }
    void removeObjectForKey(std::string_view key) { setObject(PropertyValue(), key); }

    // Adds registered defaults (later registrations of a key win). Never written.
    void registerDefaults(const PropertyValue::Dictionary& defaults);
    // True when the file (not a registered default) holds the key.
    bool hasStoredValueForKey(std::string_view key) const;

    ObserverId addObserver(std::string key, Observer observer);
    void removeObserver(ObserverId id);

    // Writes unsaved changes to the file. True when there was nothing to write or the
    // write succeeded; on failure the changes stay unsaved and *error says why.
    bool synchronize(CVError* error = nullptr);

private:
    PropertyValue effectiveValueLocked(std::string_view key) const;
    void load();
    void notifyObservers(const std::string& key, const PropertyValue& oldValue,
                         const PropertyValue& newValue);

    struct ObserverEntry {
        ObserverId id;
        std::string key;
        Observer observer;
    };

    std::string m_path;
    mutable std::mutex m_mutex;
    PropertyValue::Dictionary m_stored;
    PropertyValue::Dictionary m_registered;
    bool m_dirty = false;
    std::vector<std::shared_ptr<ObserverEntry>> m_observers;
    ObserverId m_nextObserverId = 1;
};

} // namespace corvel
