#pragma once
// FolderWalk: one depth-first pass over a folder tree with folder descriptors, for the
// tree walker. Each folder is opened relative to its parent's descriptor (openat, never
// following a link), listed with getdents64 and sorted by name, and each entry is
// examined relative to its folder (fstatat, not following links): the walk reaches
// folders below any length of path and never resolves a whole path per entry.
//
// Entries come out in single-pass order: a folder, its entries in byte order of their
// names (folders with everything below them), then its end. Links make no entry; a
// folder on another device, refused by the ignore list or past the depth limit is
// reported and ended without being entered.
//
// A pass may leave a folder it would enter to another pass (a cut): the sink gets the
// folder's path and context and notes the spot; that pass, started with walkBelow,
// gives what lies inside the folder, but neither the folder nor its end. A cut is made
// only where the whole path fits in PATH_MAX, since the other pass opens its folder by
// path (and checks it is the folder that was met).
//
// Descriptors: a pass holds at most kOpenFolders folders open, the deepest ones; a
// folder closed for that is opened again through ".." of its child on the way back up
// (by path when that fails), checked to be the folder that was left. A folder that
// cannot be opened again is reported as a failure and its remaining entries are not
// walked.
//
// Threads: a pass runs on one thread. Passes on several threads share the ignore list,
// which the caller prepares before, and only read it.

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "engine/node.h"
#include "folder_names.h"
#include "tree_walker.h"

namespace corvel {

class CVIgnoreList;
class RegularExpression;

using FolderId = std::pair<dev_t, ino_t>;

// What a pass below the root inherits from the folders above its top folder.
struct WalkContext {
    NodeType type = kNodeTypeUnknown; // the top folder's node type
    int depth = 0;                    // folders open once the top is entered, the top included
    int specialOpen = 0;              // of those, folders of a type other than plain folder
    dev_t device = 0;                 // the root's device; other devices are not entered
    FolderId top{};                   // the top folder as the cutting pass met it
    std::vector<FolderId> ancestors;  // the folders above the top, for cycles
};

// Where a pass's entries go, and whether it may cut. Called on the pass's thread.
class WalkSink {
public:
    [[nodiscard]] virtual bool going() const = 0;
    virtual void emit(const WalkEntry& entry) = 0;
    // Whether the folder about to be entered should be left to another pass.
    virtual bool mayCut() = 0;
    // Leaves the folder at path to another pass; its entries stand here.
    virtual void cut(std::string path, WalkContext context) = 0;

protected:
    ~WalkSink() = default;
};

class FolderWalk {
public:
    static constexpr std::size_t kOpenFolders = 32;

    // root.forceScan is passed to the ignore list's verdicts; pattern is the ignore
    // pattern taken when the walk began (null for none). Nothing is owned but the
    // descriptors the pass opens, all closed by the destructor.
    FolderWalk(CVIgnoreList& ignoreList, const CVScanPath& root, const RegularExpression* pattern,
               WalkSink& sink);
    ~FolderWalk();
    FolderWalk(const FolderWalk&) = delete;
    FolderWalk& operator=(const FolderWalk&) = delete;

    // Walks the root itself: a folder, a file, or a failure entry when it cannot be
    // examined (ending the root when it is gone). Answers false, with errno in error,
    // only when the root names nothing at all (an empty path).
    bool walkRoot(int& error);
    // Walks what lies inside the folder at path, cut from another pass with context. Its
    // only own entry is a failure when the folder cannot be opened and listed.
    void walkBelow(const std::string& path, const WalkContext& context);

private:
    struct Frame {
        int fd = -1; // -1 once closed to bound the descriptors held
        FolderNames names;
        std::size_t next = 0;       // the next name to visit
        std::size_t pathLength = 0; // m_path's length at this folder
        std::size_t nameOffset = 0; // where its name starts in m_path
        FolderId id{};
        NodeType type = kNodeTypeUnknown;
        int depth = 0;
        int specialOpen = 0;
        bool quietEnd = false; // a pass's top below the root: its end is the cutting pass's
    };
    // A folder met, and what the pass decided about it.
    struct MetFolder {
        std::string_view name;
        const struct stat* st;
        int fd;        // open on the folder, or -1
        int openError; // why it could not be opened or listed, when fd is -1
    };

    void run();
    Frame& current() { return m_frames[m_open - 1]; }
    void visitName(std::size_t index);
    void visitFile(std::string_view name, const struct stat& st, bool top);
    void visitFolder(MetFolder folder);
    void enterFolder(const MetFolder& folder, NodeType type);
    void cutFolder(const MetFolder& folder, NodeType type);
    void leaveFolder();
    bool reopen(std::size_t index, int childFd);
    void endFolder(std::string_view name);
    // An entry of the current folder that makes no node (a link, a dropped .DS_Store).
    void reportUnseen(std::string_view name);
    void reportFailure(std::string_view name, int error, bool closesFolder = false, bool atRoot = false);
    [[nodiscard]] WalkEntry describe(WalkEntry::Kind kind, std::string_view name,
                                     const struct stat& st) const;
    [[nodiscard]] bool leadsBackUp(const FolderId& id) const;
    // Makes m_path the path of the current folder's entry name; answers the name as a
    // C string inside m_path.
    const char* enterName(std::string_view name);

    CVIgnoreList& m_ignoreList;
    const CVScanPath& m_root;
    const RegularExpression* m_pattern;
    WalkSink& m_sink;
    WalkContext m_context;
    std::string m_path;          // the entry being visited, or the current folder
    std::vector<Frame> m_frames; // the open folders, outermost first, reused
    std::size_t m_open = 0;      // how many of m_frames are open folders
};

} // namespace corvel
