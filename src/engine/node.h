#pragma once
// The scanned-item tree. CVNode holds what every node shares (path, sizes, children,
// the lazily made signature and type identifier); CVFile is a scanned file with the
// selection and removal state; CVFolder (folder.h) and CVGroup (group.h) derive from them.
//
// Ownership: a node owns its children (shared pointers); its root folder is a weak
// link, and its parent folder and group are plain back-pointers that the folder or
// group clears when it dies. A file node cannot make a shared pointer to itself: whoever
// needs one takes it from a holder (the parent's child list, the size filing). Nodes are built on the scan
// thread and read on the main thread; the observed properties ("size", "childrenCount", "needToRemove",
// "wasRemoved") are written under the node's lock and announced through the node's change notifier on the
// main queue. Rarely used state (name, library record, notifier) lives out of line and is made on first use,
// and so do the signature and the root-folder link; only folders and groups have room for a child list, made
// with its count on the first child. So a plain file node stays small; the group link is kept in the file
// itself, because every member of every group has one.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "compact_string.h"
#include "node_services.h"
#include "node_type.h"
#include "path_component.h"
#include "platform/change_notifier.h"
#include "platform/property_value.h"
#include "signature.h"

namespace corvel {

class CVNode;
class CVFile;
class CVFolder;
class CVGroup;
using NodePtr = std::shared_ptr<CVNode>;

// The children of a folder or group and their count (node.cpp), and the slot that owns
// them: made by the thread that adds the first child, deleted with the slot.
struct NodeChildList;
class NodeChildSlot {
public:
    NodeChildSlot() = default;
    ~NodeChildSlot();
    NodeChildSlot(const NodeChildSlot&) = delete;
    NodeChildSlot& operator=(const NodeChildSlot&) = delete;
    std::atomic<NodeChildList*> list{nullptr};
};

// The scan's side of the nodes: folder comparison polls it between steps, and tells it
// of a child file whose content could not be read (error: the errno), on the scan thread.
class CVNodeDelegate {
public:
    virtual ~CVNodeDelegate() = default;
    virtual bool stopSignaturesComparing() const = 0;
    virtual void fileCouldNotBeRead(CVFile& /*file*/, int /*error*/) {}
};

// One root path of a scan; forceScan walks it with library and ignore rules relaxed.
struct CVScanPath {
    std::string path;
    bool forceScan = false;
};

// How a file got marked for removal.
enum SelectionType : std::int32_t {
    kSelectionNone = 0,
    kSelectionManual = 1,
    kSelectionWeak = 2,
    kSelectionStrong = 3,
    kSelectionAutomatic = 4,
};

class CVNode {
public:
    explicit CVNode(std::string_view path = {});
    virtual ~CVNode();
    CVNode(const CVNode&) = delete;
    CVNode& operator=(const CVNode&) = delete;

    // The absolute path. A walked node stores only its name and asks its parent folder
    // for the rest, which keeps a million paths from being stored a million times.
    virtual std::string path() const;
    // Stores an absolute path (a rename, a group's first member).
    virtual void setPath(std::string_view path);
    // The path as stored: absolute, or just the name for a walked node. Valid until the
    // path is set again.
    std::string_view storedPath() const { return m_path.view(); }
    // Display name; empty unless set (groups take their first member's title).
    virtual std::string name() const;
    void setName(std::string name);

    std::uint64_t size() const { return m_size.load(std::memory_order_relaxed); }
    void setSize(std::uint64_t size);
    std::uint64_t sizeOnDisk() const { return m_sizeOnDisk; }
    void setSizeOnDisk(std::uint64_t size) { m_sizeOnDisk = size; }
    std::uint64_t inodeNumber() const { return m_inodeNumber; }
    void setInodeNumber(std::uint64_t inode) { m_inodeNumber = inode; }

    // The node type (node_type.h); 0 while unknown.
    virtual NodeType type() const { return static_cast<NodeType>(m_type.load(std::memory_order_relaxed)); }
    void setType(NodeType type) { m_type.store(static_cast<std::int8_t>(type), std::memory_order_relaxed); }

    // The children in the order added (empty for plain files).
    const std::vector<NodePtr>& children() const;
    std::uint64_t childrenCount() const;
    // The children marked for removal (files with needToRemove), in order.
    std::vector<NodePtr> childrenToRemove() const;
    // Read from the file system when asked: the birth time where the file system keeps
    // one, and the modification time; nothing for a missing item.
    std::optional<PropertyDate> creationDate() const;
    std::optional<PropertyDate> modifiedDate() const;
    // Appends (raising childrenCount, announced) / removes the first occurrence (lowering it).
    void addChild(NodePtr child);
    void removeChild(const CVNode* child);
    // Gives back the child list's spare room once no more children are expected (the walk
    // calls it when a folder's entries are all in); adding later still works.
    void fitChildren();
    // Sets childrenCount without announcing it.
    void setChildrenCountSilently(std::uint64_t count);
    void setChildrenCount(std::uint64_t count);

    // The preferred type identifier of the path's extension (a table look-up on each call:
    // nothing is kept).
    virtual std::string uti() const;
    // The content signature, made on first use from path, size, type and type identifier.
    // Scan thread only.
    const CVSignature& signature();
    bool hasSignature() const;
    void releaseSignature();
    // Replaces the signature (a group keeps the signature of its last member).
    void setSignature(std::shared_ptr<CVSignature> signature);
    std::shared_ptr<CVSignature> sharedSignature();

    // The folder comparison's stop flag source; only folders keep one.
    virtual CVNodeDelegate* delegate() const { return nullptr; }

    // Change notices for the observed keys (made on first use).
    ChangeNotifier& changeNotifier();
    // The notifier when someone made it, else null: nobody can be listening.
    ChangeNotifier* changeNotifierIfAny() const;

    // The lock that guards this node's observed values (shared between nodes by hashing).
    std::mutex& lock() const;

protected:
    struct Extras;
    Extras& extras() const;
    Extras* extrasIfAny() const { return m_extras.load(std::memory_order_acquire); }
    // Announces will-change, runs the write under the node's lock, announces did-change.
    template <typename Write> void changeObserved(std::string_view key, Write write);

    // The child list, made on the first child; only a node with a child slot has one.
    std::vector<NodePtr>& mutableChildren();

    // Where a folder or group keeps its child list; a plain file has none (null), which
    // keeps the most numerous node of a scan 8 bytes smaller.
    virtual NodeChildSlot* childSlot() { return nullptr; }
    const NodeChildSlot* childSlot() const { return const_cast<CVNode*>(this)->childSlot(); }

private:
    NodeChildList& childList();
    CompactString m_path;
    std::atomic<std::uint64_t> m_size{0};
    std::uint64_t m_sizeOnDisk = 0;
    std::uint64_t m_inodeNumber = 0;
    mutable std::atomic<Extras*> m_extras{nullptr};
    // Last, so that a derived class's small fields fill the padding after it (every node
    // type fits a byte).
    std::atomic<std::int8_t> m_type{0};
};

class CVFile : public CVNode {
public:
    CVFile(std::string_view path, std::string name, std::uint64_t size, std::uint64_t sizeOnDisk = 0);
    ~CVFile() override;

    // The stored type, or, while it is 0, the file's type from the node type generator.
    NodeType type() const override;

    bool removeForbidden() const { return flag(kRemoveForbidden); }
    virtual void setRemoveForbidden(bool value) { setFlag(kRemoveForbidden, value); }
    bool needToRemove() const { return flag(kNeedToRemove); }
    // Announced; does nothing when the value does not change.
    void setNeedToRemove(bool value);
    bool ignore() const { return flag(kIgnore); }
    virtual void setIgnore(bool value) { setFlag(kIgnore, value); }
    bool wasRemoved() const { return flag(kWasRemoved); }
    void setWasRemoved(bool value);
    bool pathComponentsCorrupted() const { return flag(kPathComponentsCorrupted); }
    void setPathComponentsCorrupted(bool value) { setFlag(kPathComponentsCorrupted, value); }
    bool tempRemoveForbidden() const { return flag(kTempRemoveForbidden); }
    void setTempRemoveForbidden(bool value) { setFlag(kTempRemoveForbidden, value); }
    bool wasRemovedOutside() const { return flag(kWasRemovedOutside); }
    void setWasRemovedOutside(bool value) { setFlag(kWasRemovedOutside, value); }
    // Marks the file as named among those whose content could not be read; true only for
    // the call that marked it, so that each file is named once. Any thread.
    bool markReadFailureNamed() {
        return (m_flags.fetch_or(kReadFailureNamed, std::memory_order_relaxed) & kReadFailureNamed) == 0;
    }

    SelectionType selectionType() const {
        return static_cast<SelectionType>(m_selectionType.load(std::memory_order_relaxed));
    }
    void setSelectionType(SelectionType type) { m_selectionType.store(static_cast<std::int8_t>(type)); }
    // "none", "manual", "weak", "strong", "automatic"; "unknown" otherwise.
    static const char* stringSelectionType(SelectionType type);

    CVFolder* parentFolder() const { return m_parentFolder; }
    void setParentFolder(CVFolder* folder) { m_parentFolder = folder; }
    CVGroup* parentGroup() const { return m_parentGroup; }
    void setParentGroup(CVGroup* group) { m_parentGroup = group; }
    // The library or bundle folder that holds the file, if any. Held weakly: the root
    // is an ancestor, and a strong link would make a cycle with its children.
    std::shared_ptr<CVFolder> rootFolder() const;
    void setRootFolder(const std::shared_ptr<CVFolder>& folder);

    std::int64_t statCTime() const;
    // Whole seconds, rounded down (also before 1970).
    std::int64_t statMTime() const;
    void setStatCTime(std::int64_t seconds);
    // Times beyond about 292 years from 1970 are kept as whole seconds.
    void setStatMTime(std::int64_t seconds);
    // The modification time to the nanosecond, as the walk read it (saturated for times
    // kept in whole seconds).
    std::int64_t statMTimeNanoseconds() const;
    void setStatMTimeNanoseconds(std::int64_t nanoseconds) {
        m_statMTime = nanoseconds;
        setFlag(kMTimeInSeconds, false);
    }
    static constexpr std::int64_t kNanosecondsPerSecond = 1000000000;

    // The device the item lies on, as the walk read it (0: unknown). Every item of one
    // root shares its device, so a walked file asks its folder; a file without a folder
    // keeps its own.
    virtual std::uint64_t device() const;
    virtual void setDevice(std::uint64_t device);

    std::string path() const override;
    // Whether the two nodes stand for the same path; cheap when their names differ.
    bool hasSamePathAs(const CVFile& other) const;
    void setPath(std::string_view path) override;
    // Stores only the name: the path is the parent folder's path and this name. Set
    // before the node is attached to its folder; a folder that dies gives its children
    // their full paths back.
    void setNameRelativeToParent(std::string_view name);

    // The file name without its extension.
    virtual std::string title() const;
    // The file URL of the path relative to the group's base path ("b/x.jpg" under
    // "file:///a/"); the whole file URL when the file is in no group.
    std::string relativePathURL() const;

    // The library record: made on first use, filled only inside a photo library (the
    // photo's event) or an iTunes library (the track); an empty dictionary otherwise,
    // and inside a library for a file the library does not list.
    PropertyValue info() const;
    void setInfo(PropertyValue info);

    // The services the node was made with (node_services.h): its own, else those of the
    // nearest folder above it that has some, else the defaults. Valid while the node lives.
    const CVNodeServices& services() const;
    // The shared pointer behind services(), to hand them on; null for the defaults.
    NodeServicesPtr sharedServices() const;
    // Gives the node its own services (nothing for null). At most once per node: the maker
    // of a tree calls it on the top node before anyone else sees the tree, a dying folder
    // on a child that has none. Readers on other threads see either none or these.
    void setServices(NodeServicesPtr services);
    // Whether the node carries services of its own.
    bool hasOwnServices() const;

private:
    // The extras of the nearest node, from this one up, that carries services; null if none.
    const Extras* servicesCarrier() const;

public:
    // The display components of the path, deepest last: inside an iTunes library the
    // track's artist and album, inside a photo library the photo's event (each when the
    // library lists it), otherwise the folders between the group's base path (the root
    // when the file is in no group) and the file. Linux has no localised display names:
    // the plain folder names serve.
    std::vector<CVPathComponent> pathComponents() const;
    std::vector<CVPathComponent> generateRegularPathComponents() const;
    std::vector<CVPathComponent> generateITunesPathComponents() const;
    std::vector<CVPathComponent> generateIPhotoPathComponents() const;
    // The deepest component (the folder, album or event holding the file), if any.
    std::optional<CVPathComponent> parentFolderPathComponent() const;
    // The components' titles followed by the file's own name.
    std::vector<std::string> displayElements() const;

    // True when other is of the same class, has another path, and equal signatures.
    virtual bool isDuplicateOf(CVNode& other);
    // True when the two file names without extension are equal ignoring case.
    bool areLastComponentsTheSame(std::string_view otherPath) const;
    // True while the file exists with the byte size recorded by the walk.
    virtual bool checkForIntegrity() const;

protected:
    enum Flag : std::uint16_t {
        kRemoveForbidden = 1 << 0,
        kNeedToRemove = 1 << 1,
        kIgnore = 1 << 2,
        kWasRemoved = 1 << 3,
        kPathComponentsCorrupted = 1 << 4,
        kTempRemoveForbidden = 1 << 5,
        kWasRemovedOutside = 1 << 6,
        // Folder flags kept in the same word.
        kChildrenInvisible = 1 << 7,
        kChildrenUndeletable = 1 << 8,
        kAllChildrenIgnored = 1 << 9,
        kRelativePath = 1 << 10,
        kMTimeInSeconds = 1 << 11, // m_statMTime holds seconds, not nanoseconds
        kReadFailureNamed = 1 << 12,
        kHoldsUnwalked = 1 << 13,
    };
    bool flag(Flag f) const { return (m_flags.load(std::memory_order_relaxed) & f) != 0; }
    void setFlag(Flag f, bool value) {
        if (value)
            m_flags.fetch_or(f, std::memory_order_relaxed);
        else
            m_flags.fetch_and(static_cast<std::uint16_t>(~f), std::memory_order_relaxed);
    }

private:
    // A status-change time is the clock's when the status changed (no call sets it), so
    // it fits 32 bits until 2106; one outside [0, kCTimeElsewhere) is kept in the extras.
    static constexpr std::uint32_t kCTimeElsewhere = 0xffffffffU;

    // In this order the small fields fill the padding after CVNode's type.
    std::atomic<std::int8_t> m_selectionType{0};
    std::atomic<std::uint16_t> m_flags{0};
    std::uint32_t m_statCTime = 0;
    CVFolder* m_parentFolder = nullptr;
    CVGroup* m_parentGroup = nullptr;
    std::int64_t m_statMTime = 0; // nanoseconds, or seconds with kMTimeInSeconds
};

// The file name without its extension ("photo" for "/a/photo.jpeg", ".bashrc" for "/a/.bashrc").
std::string fileTitle(std::string_view path);

} // namespace corvel
