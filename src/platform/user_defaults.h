#pragma once
// UserDefaults: the user-defaults store. One XML property-list file holds the user's
// settings as a top-level dictionary keyed by the defaults names ("MinScanSize",
// "IgnoreList", ...). Registered defaults answer reads of keys the file does not hold
// and are never written. Observers of a key hear of every real change of its value
// (the file value, or the registered default when there is none), with the old and the
// new value, on the main queue. All methods may be called from any thread.
//
// The file is written by synchronize (and when the store is destroyed with unsaved
// changes) atomically, so a crash leaves the old file or the new one. A symbolic link
// is written through: the file it points to is replaced, the link stays.
//
// Other programs write the same file (the desktop application, a command-line run, the
// reminder), so synchronize writes only the keys this store changed: it reads the file
// again under a lock on its folder, sets or removes those keys, and keeps every other
// key as the file holds it then. When two programs change the same key, the last save
// wins for that key: two runs that each add to the statistics at the same moment keep
// only one run's addition. A file that can no longer be read, is no longer a settings
// file, has become a link that leads nowhere, or is read-only (no write permission for
// anyone, root included, or none for this user) is not written. A save replaces the
// file, as desktop programs do: another hard link to it keeps the old contents.
//
// Settings are never lost. What opening found is fileState():
// - a file that exists but cannot be read (permissions, I/O error, a folder or a device
//   at the program's own path, a link to nothing) is never written: the store works
//   from memory for the whole run and synchronize refuses;
// - a file that is not a settings file (not a property list, or not a dictionary at the
//   top; an empty file too) is never written either when the user named it (--settings,
//   $CORVEL_SETTINGS): the face reports it (the command line as a usage error). Only the
//   program's own file under $XDG_CONFIG_HOME is repaired: the damaged file is renamed
//   beside it to "<name>.corrupt-YYYYMMDD-HHMMSS" (never over an earlier one) and the
//   store starts empty.
// The first and the last case are told to the user with warnUser (system_log.h).
// Opening a file it may write also removes the whole temporary copies a killed run left
// beside it ("<name>.tmp-XXXXXX", see removeStaleTemporaries in file_io.h).
//
// A stored value whose type does not fit its key's registered default (a string or a
// number where a boolean belongs, ...) reads as the registered default; the user is told
// once per key, and the value stays in the file until the key is set again. Integers
// and reals both fit a number; a boolean fits only a boolean.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
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

    // Where the file came from decides whether a damaged one may be repaired.
    enum class FileOrigin {
        NamedByUser, // --settings FILE, $CORVEL_SETTINGS, a path a caller chose: never repaired
        OwnDefault,  // the program's own file at the XDG location: a damaged one is set aside
    };
    enum class FileState {
        Missing,          // no file yet: the first synchronize creates it
        Loaded,           // read
        Unreadable,       // exists but could not be read: never written
        NotASettingsFile, // exists but holds no settings and was not set aside: never written
        SetAside,         // the damaged own file was renamed to setAsidePath(); the store starts empty
    };

    // Opens the store backed by the file at path (which need not exist yet).
    explicit UserDefaults(std::string path, FileOrigin origin = FileOrigin::NamedByUser);
    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The file the shared store uses: $CORVEL_SETTINGS when set, otherwise
    // $XDG_CONFIG_HOME/corvel/com.halvik.Corvel.plist (~/.config when XDG_CONFIG_HOME is unset).
    static std::string defaultPath();
    // NamedByUser when $CORVEL_SETTINGS chooses the file, OwnDefault otherwise.
    static FileOrigin defaultPathOrigin();
    // The process-wide store; made on first use at the path given to setStandardPath
    // (named by the user), or at defaultPath. setStandardPath has effect only before the first use.
    static UserDefaults& standardUserDefaults();
    static void setStandardPath(std::string path);

    const std::string& path() const { return m_path; }
    FileOrigin fileOrigin() const { return m_origin; }
    FileState fileState() const { return m_state; }
    // Why the file was not loaded (Unreadable, NotASettingsFile, SetAside); empty otherwise.
    const CVError& fileError() const { return m_fileError; }
    // Where a damaged own file went (SetAside only).
    const std::string& setAsidePath() const { return m_setAsidePath; }
    // What opening found that the user must know, in one sentence (the file could not be
    // read, is not a settings file, was set aside, or is read-only); empty when it opened
    // and may be written, or was not there. For a face that comes up after the store was
    // opened.
    const std::string& openingProblem() const { return m_openingProblem; }
    // True when the file is never written (Unreadable, NotASettingsFile).
    bool isReadOnly() const {
        return m_state == FileState::Unreadable || m_state == FileState::NotASettingsFile;
    }

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

    // A value for this run only (a command line's option): it wins over the stored value
    // and the registered default, is never written, and leaves the stored value as it is
    // (setObject still changes that). A null value ends the override.
    void setVolatileObject(PropertyValue value, std::string_view key);

    // Adds registered defaults (later registrations of a key win). Never written.
    void registerDefaults(const PropertyValue::Dictionary& defaults);

    // How a key this store changed is saved into a file that another program (a second
    // corvel running at the same time) changed since this store read it. Replace writes
    // this store's value, as for every key by default. Sum adds what this store added to
    // the number (a running total); ArrayByIndex keeps the file's array, with the elements
    // this store changed put in their places and those it appended added at the end (a
    // list of records). Either way the store then holds what was written.
    enum class SaveMerge { Replace, Sum, ArrayByIndex };
    void setSaveMerge(std::string_view key, SaveMerge merge);
    // True when the file (not a registered default) holds the key.
    bool hasStoredValueForKey(std::string_view key) const;

    ObserverId addObserver(std::string key, Observer observer);
    void removeObserver(ObserverId id);

    // Writes unsaved changes to the file. True when there was nothing to write or the
    // write succeeded; on failure (or for a read-only store) the changes stay unsaved and
    // *error says why.
    [[nodiscard]] bool synchronize(CVError* error = nullptr);

private:
    // The stored value if its type fits, else the registered default. When the stored
    // value does not fit and the key was not reported yet, *warning receives the line.
    PropertyValue effectiveValueLocked(std::string_view key, std::string* warning = nullptr) const;
    // Reads the file, then removes the stale temporaries of a killed writer beside it
    // (removeStaleTemporaries, a minute old) unless the file is never written.
    void load();
    void loadFile();
    void refuse(FileState state, CVError reason);
    void setAside(const CVError& reason);
    void notifyObservers(const std::string& key, const PropertyValue& oldValue,
                         const PropertyValue& newValue);
    // The file to write now: the path, or the file a link there leads to; nothing (with
    // *error) for a link that leads nowhere.
    std::optional<std::string> currentFilePath(CVError* error) const;
    // False (with *error) when the file exists and the user made it read-only.
    bool isWritableByUser(const std::string& filePath, CVError* error) const;
    // The file as it is now, to merge this store's changes into: empty when it is gone;
    // false (with *error) when it cannot be read or holds no settings.
    bool readFileForMerge(const std::string& filePath, PropertyValue::Dictionary& out, CVError* error) const;

    struct ObserverEntry {
        ObserverId id;
        std::string key;
        Observer observer;
    };

    std::string m_path;
    // The file written and read: m_path, or the file a link at m_path points to.
    std::string m_filePath;
    FileOrigin m_origin;
    FileState m_state = FileState::Missing;
    CVError m_fileError;
    std::string m_setAsidePath;
    std::string m_openingProblem;
    mutable std::mutex m_mutex;
    std::mutex m_saveMutex; // held through a whole synchronize
    PropertyValue::Dictionary m_stored;
    // The file's values as this store last read or wrote them: what its changes are
    // measured from when a key is merged on save.
    PropertyValue::Dictionary m_base;
    std::map<std::string, SaveMerge, std::less<>> m_saveMerges;
    PropertyValue::Dictionary m_registered;
    PropertyValue::Dictionary m_volatile;
    // Keys set or removed since the last successful synchronize.
    std::set<std::string, std::less<>> m_changedKeys;
    // Keys whose stored value was reported as of the wrong type.
    mutable std::set<std::string, std::less<>> m_reportedKeys;
    std::vector<std::shared_ptr<ObserverEntry>> m_observers;
    ObserverId m_nextObserverId = 1;
};

} // namespace corvel
