#include "user_defaults.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <map>
#include <sys/file.h>
#include <sys/stat.h>

#include "file_io.h"
#include "main_queue.h"
#include "property_list.h"
#include "system_log.h"
#include "unique_fd.h"
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

// A temporary this old is no live writer's: a write takes milliseconds.
constexpr std::chrono::seconds kStaleTemporaryAge{60};

const char* kindName(const PropertyValue& value) {
    switch (value.type()) {
    case PropertyValue::Type::Null:
        return "nothing";
    case PropertyValue::Type::Bool:
        return "a boolean";
    case PropertyValue::Type::Integer:
    case PropertyValue::Type::Real:
        return "a number";
    case PropertyValue::Type::String:
        return "a string";
    case PropertyValue::Type::Date:
        return "a date";
    case PropertyValue::Type::Data:
        return "data";
    case PropertyValue::Type::Array:
        return "an array";
    case PropertyValue::Type::Dictionary:
        return "a dictionary";
    }
    return "a value";
}

// A registered default as a message shows it: reals with six significant digits (the
// minimum-size slider's single-precision 0.0499999 reads as written, not as its double),
// an empty list in words.
std::string shownDefault(const PropertyValue& value) {
    if (value.type() == PropertyValue::Type::Real) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", value.toDouble());
        return text;
    }
    if (const auto* array = value.asArray(); array && array->empty())
        return "(an empty list)";
    return value.description();
}

// A stored number as a signed 64-bit integer (larger ones held at the largest); 0 for
// anything else: a total of the wrong type counts from 0.
std::int64_t wholeNumber(const PropertyValue& value) {
    constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
    if (value.isUnsignedInteger())
        return static_cast<std::int64_t>(std::min<std::uint64_t>(value.toUInt64(), kLargest));
    if (value.asInteger())
        return value.toInt64();
    if (value.asReal()) {
        const double d = value.toDouble();
        return d >= 9.2e18 ? kLargest : d <= -9.2e18 ? -kLargest : static_cast<std::int64_t>(d);
    }
    return 0;
}

// a + b, held within the signed 64 bits.
std::int64_t saturatingAdd(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        return b > 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
    return sum;
}

// The value to write for a key this store set to mine, merged with the file's value as
// the key's SaveMerge says; base is the value this store last read or wrote.
PropertyValue mergedForSave(UserDefaults::SaveMerge merge, const PropertyValue& base,
                            const PropertyValue& mine, const PropertyValue& inFile) {
    using SaveMerge = UserDefaults::SaveMerge;
    if (merge == SaveMerge::Sum && (mine.asInteger() || mine.asReal())) {
        // What this store added (its value less the one it started from), onto the file's.
        const std::int64_t added = saturatingAdd(wholeNumber(mine), -wholeNumber(base));
        return PropertyValue(
            static_cast<long long>(std::max<std::int64_t>(0, saturatingAdd(wholeNumber(inFile), added))));
    }
    const auto* mineArray = mine.asArray();
    const auto* fileArray = inFile.asArray();
    if (merge != SaveMerge::ArrayByIndex || !mineArray || !fileArray)
        return mine;
    static const PropertyValue::Array none;
    const PropertyValue::Array& baseArray = base.asArray() ? *base.asArray() : none;
    PropertyValue::Array merged = *fileArray;
    for (std::size_t i = 0; i < std::min(baseArray.size(), mineArray->size()); ++i) {
        const PropertyValue& element = (*mineArray)[i];
        const bool changed = !(element == baseArray[i]) || element.type() != baseArray[i].type();
        if (changed && i < merged.size())
            merged[i] = element;
    }
    for (std::size_t i = baseArray.size(); i < mineArray->size(); ++i)
        merged.push_back((*mineArray)[i]);
    return PropertyValue(std::move(merged));
}

// Whether a stored value may stand where the registered default has this type: numbers
// (integer or real) for numbers, otherwise exactly the same type.
bool fitsRegisteredType(const PropertyValue& stored, const PropertyValue& registered) {
    using Type = PropertyValue::Type;
    const Type want = registered.type();
    if (want == Type::Null)
        return true;
    if (want == Type::Integer || want == Type::Real)
        return stored.type() == Type::Integer || stored.type() == Type::Real;
    return stored.type() == want;
}

// Holds an exclusive lock on the folder of the settings file while it is read and
// written again, so that two programs saving at once take turns. Without a lock (a
// folder this user cannot open, a network file system that refuses it) the save goes
// on, and says so in the log: the merge still keeps the other program's keys unless
// both write in the same instant.
UniqueFd lockFolderOf(const std::string& filePath) {
    const std::string folderPath = parentPath(filePath);
    UniqueFd folder(::open(folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    int failed = folder.valid() ? 0 : errno;
    while (failed == 0 && ::flock(folder.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            failed = errno;
    if (failed != 0)
        systemLog("Settings saved without a lock on " + folderPath + ": " + std::strerror(failed));
    return folder;
}

} // namespace

UserDefaults::UserDefaults(std::string path, FileOrigin origin)
    : m_path(std::move(path)), m_filePath(m_path), m_origin(origin) {
    load();
}

UserDefaults::~UserDefaults() {
    CVError error;
    if (!isReadOnly() && !synchronize(&error))
        systemLog("Failed to save settings: " + error.localizedDescription());
}

std::string UserDefaults::defaultPath() {
    if (const char* env = std::getenv("CORVEL_SETTINGS"); env && *env)
        return env;
    return xdgConfigHome() + "/corvel/com.halvik.Corvel.plist";
}

UserDefaults::FileOrigin UserDefaults::defaultPathOrigin() {
    const char* env = std::getenv("CORVEL_SETTINGS");
    return env && *env ? FileOrigin::NamedByUser : FileOrigin::OwnDefault;
}

void UserDefaults::setStandardPath(std::string path) {
    std::lock_guard lock(standardMutex());
    standardPath() = std::move(path);
}

UserDefaults& UserDefaults::standardUserDefaults() {
    static UserDefaults* shared = [] {
        std::lock_guard lock(standardMutex());
        if (!standardPath().empty())
            return new UserDefaults(standardPath(), FileOrigin::NamedByUser);
        return new UserDefaults(defaultPath(), defaultPathOrigin());
    }();
    return *shared;
}

void UserDefaults::refuse(FileState state, CVError reason) {
    m_state = state;
    m_fileError = std::move(reason);
    const std::string why = m_fileError.localizedDescription();
    if (state == FileState::Unreadable) {
        m_openingProblem = "Settings file " + m_path + " could not be read (" + why +
                           "); this run uses the default settings and leaves the file as it is";
        warnUser(m_openingProblem);
    } else {
        // The command line refuses to run on it with its own words; a face that runs on
        // shows openingProblem.
        const std::string notSettings = "Settings file " + m_path + " is not a settings file (" + why + ")";
        m_openingProblem = notSettings + "; this run uses the default settings and leaves the file as it is";
        systemLog(notSettings + "; it is left as it is");
    }
}

void UserDefaults::setAside(const CVError& reason) {
    const std::string aside = setAsideDamagedFile(m_filePath);
    if (aside.empty()) {
        const int saved = errno;
        refuse(FileState::NotASettingsFile, reason);
        m_openingProblem = "Settings file " + m_path + " is damaged (" + reason.localizedDescription() +
                           ") and could not be moved aside (" + std::strerror(saved) +
                           "); this run uses the default settings and leaves the file as it is";
        warnUser(m_openingProblem);
        return;
    }
    m_state = FileState::SetAside;
    m_fileError = reason;
    m_setAsidePath = aside;
    m_openingProblem = "Settings file " + m_path + " is damaged (" + reason.localizedDescription() +
                       "); it is kept as " + aside + " and the default settings are used";
    warnUser(m_openingProblem);
}

void UserDefaults::load() {
    loadFile();
    if (isReadOnly())
        return;
    // Read, but made read-only by the user: every save will be refused, which a face that
    // comes up later says at once rather than at the first change.
    if (CVError notWritable; m_state == FileState::Loaded && !isWritableByUser(m_filePath, &notWritable))
        m_openingProblem =
            "Settings file " + m_path + " is read-only: what is changed in this run is not kept";
    // A run killed between writing its temporary and renaming it left a whole copy
    // beside the file; only this store's own stale ones go.
    for (const auto& removed : removeStaleTemporaries(m_filePath, kStaleTemporaryAge))
        systemLog("Removed " + removed + ", left by a run that ended before saving the settings");
}

void UserDefaults::loadFile() {
    struct stat st {};
    if (::lstat(m_path.c_str(), &st) != 0) {
        if (errno != ENOENT)
            refuse(FileState::Unreadable, posixError(errno, m_path, "Cannot open"));
        return;
    }
    if (S_ISLNK(st.st_mode)) {
        // Written through: the file the link points to is the settings file.
        char resolved[PATH_MAX];
        if (!::realpath(m_path.c_str(), resolved)) {
            refuse(FileState::Unreadable, posixError(errno, m_path, "Cannot follow the link"));
            return;
        }
        m_filePath = resolved;
        if (::stat(m_filePath.c_str(), &st) != 0) {
            refuse(FileState::Unreadable, posixError(errno, m_filePath, "Cannot open"));
            return;
        }
    }
    const bool mayRepair = m_origin == FileOrigin::OwnDefault;
    if (!S_ISREG(st.st_mode)) {
        // Never opened: a fifo or a device could block, and a folder is nobody's settings.
        CVError reason(kCorvelFileErrorDomain, EINVAL,
                       S_ISDIR(st.st_mode) ? "it is a folder" : "it is not a regular file");
        refuse(mayRepair ? FileState::Unreadable : FileState::NotASettingsFile, std::move(reason));
        return;
    }
    PropertyValue root;
    CVError error;
    if (!readPropertyListFile(m_filePath, root, &error)) {
        if (error.domain == kPosixErrorDomain) {
            if (error.code == ENOENT)
                return; // gone since the look: nothing to keep
            refuse(FileState::Unreadable, std::move(error));
            return;
        }
    } else if (root.isDictionary()) {
        m_stored = *root.asDictionary();
        m_base = m_stored;
        m_state = FileState::Loaded;
        return;
    } else {
        error = CVError(kCorvelFileErrorDomain, EINVAL, "its top level is not a dictionary");
    }
    if (mayRepair)
        setAside(error);
    else
        refuse(FileState::NotASettingsFile, std::move(error));
}

void UserDefaults::setVolatileObject(PropertyValue value, std::string_view key) {
    std::lock_guard lock(m_mutex);
    if (value.isNull())
        m_volatile.erase(std::string(key));
    else
        m_volatile[std::string(key)] = std::move(value);
}

PropertyValue UserDefaults::effectiveValueLocked(std::string_view key, std::string* warning) const {
    if (const auto it = m_volatile.find(key); it != m_volatile.end())
        return it->second;
    const auto registered = m_registered.find(key);
    if (auto it = m_stored.find(key); it != m_stored.end()) {
        if (registered == m_registered.end() || fitsRegisteredType(it->second, registered->second))
            return it->second;
        // A value of the wrong type never decides: "NO" as a string must not read as false.
        if (warning && m_reportedKeys.insert(std::string(key)).second)
            *warning = "Setting \"" + std::string(key) + "\" in " + m_path + " has the wrong type (" +
                       kindName(it->second) + " where " + kindName(registered->second) +
                       " belongs); the default " + shownDefault(registered->second) + " is used";
        return registered->second;
    }
    if (registered != m_registered.end())
        return registered->second;
    return {};
}

PropertyValue UserDefaults::objectForKey(std::string_view key) const {
    std::string warning;
    PropertyValue value;
    {
        std::lock_guard lock(m_mutex);
        value = effectiveValueLocked(key, &warning);
    }
    if (!warning.empty())
        warnUser(warning);
    return value;
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
        m_changedKeys.insert(std::string(key));
        // A new value of the wrong type is reported again when read.
        if (auto reported = m_reportedKeys.find(key); reported != m_reportedKeys.end())
            m_reportedKeys.erase(reported);
        newValue = effectiveValueLocked(key);
    }
    if (!(oldValue == newValue) || oldValue.type() != newValue.type())
        notifyObservers(std::string(key), oldValue, newValue);
}

void UserDefaults::setSaveMerge(std::string_view key, SaveMerge merge) {
    std::lock_guard lock(m_mutex);
    m_saveMerges.insert_or_assign(std::string(key), merge);
}

void UserDefaults::registerDefaults(const PropertyValue::Dictionary& defaults) {
    std::vector<std::tuple<std::string, PropertyValue, PropertyValue>> changes;
    std::vector<std::string> warnings;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [key, value] : defaults) {
            PropertyValue before = effectiveValueLocked(key);
            m_registered.insert_or_assign(key, value);
            // A stored value that does not fit is reported now, before anything reads it.
            std::string warning;
            PropertyValue after = effectiveValueLocked(key, &warning);
            if (!warning.empty())
                warnings.push_back(std::move(warning));
            if (!(before == after))
                changes.emplace_back(key, std::move(before), std::move(after));
        }
    }
    for (const auto& warning : warnings)
        warnUser(warning);
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
    // One save at a time: a later save must not be overtaken by an earlier one's older values.
    const std::lock_guard saving(m_saveMutex);
    std::unique_lock lock(m_mutex);
    if (m_changedKeys.empty())
        return true;
    if (isReadOnly()) {
        setError(error, CVError(kCorvelFileErrorDomain, EPERM,
                                "Settings file " + m_path + " was not loaded (" +
                                    m_fileError.localizedDescription() + "), so it is not written"));
        return false;
    }
    // What this store changed: the new value, or null for a key it removed, with how it
    // is merged into the file and the value that change was made from.
    struct Change {
        PropertyValue value;
        SaveMerge merge = SaveMerge::Replace;
        PropertyValue base;
        PropertyValue written;
    };
    std::map<std::string, Change, std::less<>> changes;
    for (const auto& key : m_changedKeys) {
        Change& change = changes[key];
        if (const auto it = m_stored.find(key); it != m_stored.end())
            change.value = it->second;
        if (const auto it = m_saveMerges.find(key); it != m_saveMerges.end())
            change.merge = it->second;
        if (const auto it = m_base.find(key); it != m_base.end())
            change.base = it->second;
    }
    lock.unlock();
    if (!makeDirectories(parentPath(m_path), error))
        return false;
    const UniqueFd folderLock = lockFolderOf(m_path);
    // Looked at again: the user may have put a link in the file's place meanwhile, or
    // taken one away; a link is written through and stays.
    const std::optional<std::string> filePath = currentFilePath(error);
    if (!filePath || !isWritableByUser(*filePath, error))
        return false;
    PropertyValue::Dictionary file;
    if (!readFileForMerge(*filePath, file, error))
        return false;
    for (auto& [key, change] : changes) {
        if (change.value.isNull()) {
            file.erase(key);
            continue;
        }
        const auto inFile = file.find(key);
        change.written = change.merge == SaveMerge::Replace
                             ? change.value
                             : mergedForSave(change.merge, change.base, change.value,
                                             inFile != file.end() ? inFile->second : PropertyValue());
        file.insert_or_assign(key, change.written);
    }
    if (!writePropertyListFile(*filePath, PropertyValue(std::move(file)), error))
        return false;
    lock.lock();
    for (const auto& [key, change] : changes) {
        const auto it = m_stored.find(key);
        const PropertyValue now = it != m_stored.end() ? it->second : PropertyValue();
        if (change.written.isNull())
            m_base.erase(key);
        else
            m_base.insert_or_assign(key, change.written);
        // A key changed again while writing stays unsaved for the next synchronize.
        if (!(now == change.value) || now.type() != change.value.type())
            continue;
        m_changedKeys.erase(key);
        // A merged key now holds what the file holds, other programs' part included.
        if (change.merge != SaveMerge::Replace && !change.written.isNull())
            m_stored.insert_or_assign(key, change.written);
    }
    return true;
}

bool UserDefaults::isWritableByUser(const std::string& filePath, CVError* error) const {
    struct stat st {};
    if (::stat(filePath.c_str(), &st) != 0)
        return true; // made anew
    // No write permission for anyone is the user's word that the file stays as it is, for
    // root too (whom access() would let write).
    if ((st.st_mode & 0222) == 0 || ::access(filePath.c_str(), W_OK) != 0) {
        setError(error, CVError(kCorvelFileErrorDomain, EACCES,
                                "Settings file " + m_path + " is read-only, so it is not written"));
        return false;
    }
    return true;
}

std::optional<std::string> UserDefaults::currentFilePath(CVError* error) const {
    struct stat st {};
    if (::lstat(m_path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
        return m_path;
    if (auto resolved = canonicalPath(m_path))
        return resolved;
    const int why = errno;
    // A link to a file not there yet (or set aside as damaged) makes it, in its folder.
    char target[PATH_MAX];
    if (const ssize_t length = ::readlink(m_path.c_str(), target, sizeof(target) - 1); length > 0) {
        std::string made(target, static_cast<std::size_t>(length));
        if (made.front() != '/')
            made = parentPath(m_path) + "/" + made;
        if (auto folder = canonicalPath(parentPath(made)))
            return *folder + "/" + lastPathComponent(made);
    }
    setError(error, CVError(kCorvelFileErrorDomain, EINVAL,
                            "Settings file " + m_path + " is now a link that leads nowhere (" +
                                std::strerror(why) + "), so it is not written"));
    return std::nullopt;
}

bool UserDefaults::readFileForMerge(const std::string& filePath, PropertyValue::Dictionary& out,
                                    CVError* error) const {
    PropertyValue root;
    CVError readError;
    if (!readPropertyListFile(filePath, root, &readError)) {
        if (readError.domain == kPosixErrorDomain && readError.code == ENOENT)
            return true; // none yet, or removed by the user: only this run's changes are written
        setError(error, CVError(kCorvelFileErrorDomain, EINVAL,
                                "Settings file " + m_path + " can no longer be read (" +
                                    readError.localizedDescription() + "), so it is not written"));
        return false;
    }
    if (!root.isDictionary()) {
        setError(error, CVError(kCorvelFileErrorDomain, EINVAL,
                                "Settings file " + m_path +
                                    " is no longer a settings file (its top level is not a dictionary), "
                                    "so it is not written"));
        return false;
    }
    out = *root.asDictionary();
    return true;
}

} // namespace corvel
