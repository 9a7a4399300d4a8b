#pragma once
// CVFolder: a folder node. Children are attached in traversal order (a sub-folder
// stands twice: once when entered with size 0, once when left with its final size);
// removal and ignore flags flow down the subtree. The walk lists each folder's
// entries by name, so two copies of a folder hold their children in the same order.
// Two folders are duplicates when they have as many children, of equal sizes position
// by position, and every position holds the same name and either two duplicate
// folders or two files with equal signatures (two empty files match). Scan thread only.

#include <cstdint>
#include <memory>

#include "node.h"

namespace corvel {

// Folders hand out shared pointers to themselves (files do not: a file node is the
// most numerous object of a scan, and the link would cost it 16 bytes).
class CVFolder : public CVFile, public std::enable_shared_from_this<CVFolder> {
public:
    CVFolder(std::string_view path, std::string name, std::uint64_t size = 0, std::uint64_t sizeOnDisk = 0);
    // Children that outlive the folder (held by a group) lose their parent link and keep
    // their full path and device.
    ~CVFolder() override;

    // Folders keep the type the walk gives them (no lazy file typing).
    // NOLINTNEXTLINE(bugprone-parent-virtual-call): past CVFile on purpose, which types lazily.
    NodeType type() const override { return CVNode::type(); }

    bool childrenInvisible() const { return flag(kChildrenInvisible); }
    void setChildrenInvisible(bool value) { setFlag(kChildrenInvisible, value); }
    bool childrenUndeletable() const { return flag(kChildrenUndeletable); }
    void setChildrenUndeletable(bool value) { setFlag(kChildrenUndeletable, value); }
    // True while every child added so far is ignored.
    bool allChildrenIgnored() const { return flag(kAllChildrenIgnored); }
    // The walk left part of this folder out of the tree: the folder was not entered
    // (ignored, another file system) or holds entries that make no node (symbolic links,
    // a dropped .DS_Store). Its nodes then do not show all it holds, so a folder holding
    // it can be found equal to another only on sampled evidence.
    bool holdsUnwalked() const { return flag(kHoldsUnwalked); }
    void setHoldsUnwalked(bool value) { setFlag(kHoldsUnwalked, value); }

    CVNodeDelegate* delegate() const override { return m_delegate; }
    std::uint64_t device() const override { return m_device; }
    void setDevice(std::uint64_t device) override { m_device = device; }
    void setDelegate(CVNodeDelegate* delegate) { m_delegate = delegate; }

    // Attaches a file or folder: parent link, ignore and remove flags passed down,
    // root folder (the outermost library or bundle above), sizes added. Nothing for null.
    void addChildFile(const NodePtr& child);

    // Sets the flag and passes it to every child whose flag differs, down the subtree.
    void setRemoveForbidden(bool value) override;
    void setIgnore(bool value) override;

    bool isDuplicateOf(CVNode& other) override { return isDuplicateOf(other, false); }
    // skipChildrenSize: the child sizes are known to be equal (checked down the tree).
    bool isDuplicateOf(CVNode& other, bool skipChildrenSize);
    // Every position: same name, and duplicate folders or files with equal signatures.
    // Stops at the first mismatch; sub-folder answers are memoised by the pair.
    bool childrenAreEqual(CVFolder& other);
    // Every position holds children of equal size (sub-folders: recursively).
    bool childrenHaveEqualSize(CVFolder& other);

    // True while the folder exists.
    bool checkForIntegrity() const override;
    // A plain folder keeps its extension in its title; other folder types do not.
    std::string title() const override;

protected:
    NodeChildSlot* childSlot() override { return &m_children; }

private:
    bool stopRequested() const { return m_delegate && m_delegate->stopSignaturesComparing(); }

    CVNodeDelegate* m_delegate = nullptr;
    std::uint64_t m_device = 0;
    NodeChildSlot m_children;
};

} // namespace corvel
