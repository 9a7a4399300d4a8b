#include "user_defaults.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

#include "file_io.h"
#include "main_queue.h"
#include "property_list.h"
#include "system_log.h"
#include "user_paths.h"

namespace corvel {

namespace {

std::mutex& standardMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& standardPath() {
    static std::string path;
    return path;
}

// Moves an unreadable settings file out of the way, never over an earlier one.
std::string setAsideCorruptFile(const std::string& path) {
    std::string target = path + ".corrupt";
    for (int n = 2; pathExists(target, false) && n < 1000; ++n)
        target = path + ".corrupt-" + std::to_string(n);
    if (std::rename(path.c_str(), target.c_str()) != 0)
        return {};
    return target;
}

} // namespace

UserDefaults::UserDefaults(std::string path) : m_path(std::move(path)) {
    load();
}

UserDefaults::~UserDefaults() {
    CVError error;
    if (!synchronize(&error))
        systemLog("Failed to save settings: " + error.localizedDescription());
}

std::string UserDefaults::defaultPath() {
    if (const char* env = std::getenv("CORVEL_SETTINGS"); env && *env)
        return env;
    return xdgConfigHome() + "/corvel/com.halvik.Corvel.plist";
}

void UserDefaults::setStandardPath(std::string path) {
    std::lock_guard lock(standardMutex());
    standardPath() = std::move(path);
}

UserDefaults& UserDefaults::standardUserDefaults() {
    static UserDefaults* shared = [] {
        std::lock_guard lock(standardMutex());
        return new UserDefaults(standardPath().empty() ? defaultPath() : standardPath());
    }();
    return *shared;
}

void UserDefaults::load() {
    if (!pathExists(m_path, false))
        return;
    PropertyValue root;
    CVError error;
    const bool parsed = readPropertyListFile(m_path, root, &error);
    if (parsed && root.isDictionary()) {
        m_stored = *root.asDictionary();
        return;
    }
    if (!parsed && error.domain == kPosixErrorDomain) {
        // Unreadable (permissions, I/O): leave the file alone and work from memory.
        systemLog("Settings file could not be read, using defaults: " + error.localizedDescription());
        return;
    }
    const std::string reason = parsed ? "its top level is not a dictionary" : error.localizedDescription();
    const std::string aside = setAsideCorruptFile(m_path);
    if (aside.empty())
        systemLog("Settings file " + m_path + " is corrupt (" + reason + ") and could not be moved aside");
    else
        systemLog("Settings file " + m_path + " is corrupt (" + reason + "); kept as " + aside +
                  ", starting with defaults");
}

PropertyValue UserDefaults::effectiveValueLocked(std::string_view key) const {
    if (auto it = m_stored.find(key); it != m_stored.end())
        return it->second;
    if (auto it = m_registered.find(key); it != m_registered.end())
        return it->second;
    return {};
}

PropertyValue UserDefaults::objectForKey(std::string_view key) const {
    std::lock_guard lock(m_mutex);
    return effectiveValueLocked(key);
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
    const PropertyValue v = objectForKey(key);
    if (v.isString())
        return *v.asString();
    if (v.isNumber())
        return v.toString();
    return std::nullopt;
}

std::optional<PropertyValue::Array> UserDefaults::arrayForKey(std::string_view key) const {
    const PropertyValue v = objectForKey(key);
    if (const auto* a = v.asArray())
        return *a;
    return std::nullopt;
}

std::optional<PropertyValue::Dictionary> UserDefaults::dictionaryForKey(std::string_view key) const {
    const PropertyValue v = objectForKey(key);
    if (const auto* d = v.asDictionary())
        return *d;
    return std::nullopt;
}

std::optional<PropertyValue::Data> UserDefaults::dataForKey(std::string_view key) const {
    const PropertyValue v = objectForKey(key);
    if (const auto* d = v.asData())
        return *d;
    return std::nullopt;
}

std::optional<PropertyDate> UserDefaults::dateForKey(std::string_view key) const {
    return objectForKey(key).asDate();
}

bool UserDefaults::hasStoredValueForKey(std::string_view key) const {
    std::lock_guard lock(m_mutex);
    return m_stored.find(key) != m_stored.end();
}

void UserDefaults::setObject(PropertyValue value, std::string_view key) {
    PropertyValue oldValue;
    PropertyValue newValue;
    {
        std::lock_guard lock(m_mutex);
        oldValue = effectiveValueLocked(key);
        auto it = m_stored.find(key);
        if (value.isNull()) {
            if (it == m_stored.end())
                return;
            m_stored.erase(it);
        } else {
            if (it != m_stored.end() && it->second == value && it->second.type() == value.type())
                return;
            m_stored.insert_or_assign(std::string(key), std::move(value));
        }
        m_dirty = true;
        newValue = effectiveValueLocked(key);
    }
    if (!(oldValue == newValue) || oldValue.type() != newValue.type())
        notifyObservers(std::string(key), oldValue, newValue);
}

void UserDefaults::registerDefaults(const PropertyValue::Dictionary& defaults) {
    std::vector<std::tuple<std::string, PropertyValue, PropertyValue>> changes;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [key, value] : defaults) {
            PropertyValue before = effectiveValueLocked(key);
            m_registered.insert_or_assign(key, value);
            PropertyValue after = effectiveValueLocked(key);
            if (!(before == after))
                changes.emplace_back(key, std::move(before), std::move(after));
        }
    }
    for (const auto& [key, before, after] : changes)
        notifyObservers(key, before, after);
}

UserDefaults::ObserverId UserDefaults::addObserver(std::string key, Observer observer) {
    std::lock_guard lock(m_mutex);
    const ObserverId id = m_nextObserverId++;
    m_observers.push_back(
        std::make_shared<ObserverEntry>(ObserverEntry{id, std::move(key), std::move(observer)}));
    return id;
}

void UserDefaults::removeObserver(ObserverId id) {
    std::lock_guard lock(m_mutex);
    std::erase_if(m_observers, [id](const auto& e) { return e->id == id; });
}

void UserDefaults::notifyObservers(const std::string& key, const PropertyValue& oldValue,
                                   const PropertyValue& newValue) {
    std::vector<std::shared_ptr<ObserverEntry>> matching;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& e : m_observers)
            if (e->key == key)
                matching.push_back(e);
    }
    if (matching.empty())
        return;
    MainQueue::shared().deliver([matching = std::move(matching), oldValue, newValue] {
        for (const auto& e : matching)
            e->observer(oldValue, newValue);
    });
}

bool UserDefaults::synchronize(CVError* error) {
    std::unique_lock lock(m_mutex);
    if (!m_dirty)
        return true;
    const PropertyValue snapshot(m_stored);
    lock.unlock();
    if (!makeDirectories(parentPath(m_path), error))
        return false;
    if (!writePropertyListFile(m_path, snapshot, error))
        return false;
    lock.lock();
    // Changes made while writing stay dirty for the next synchronize.
    if (PropertyValue(m_stored) == snapshot)
        m_dirty = false;
    return true;
}

} // namespace corvel
