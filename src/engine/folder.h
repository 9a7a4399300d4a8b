#pragma once
// CVFolder: a folder node. Children are attached in traversal order (a sub-folder
// stands twice: once when entered with size 0, once when left with its final size);
// removal and ignore flags flow down the subtree. Two folders are duplicates when
// they have as many children, of equal sizes position by position, and up to 10
// randomly chosen positions hold duplicate files or folders. Scan thread only.

#include <cstdint>
#include <random>

#include "node.h"

namespace corvel {

class CVNodeCache;

class CVFolder : public CVFile {
public:
    CVFolder(std::string path, std::string name, std::uint64_t size = 0, std::uint64_t sizeOnDisk = 0);
    // Children that outlive the folder (held by a group) lose their parent link.
    ~CVFolder() override;

    // Folders keep the type the walk gives them (no lazy file typing).
    std::int32_t type() const override { return CVNode::type(); }

    bool childrenInvisible() const { return flag(kChildrenInvisible); }
    void setChildrenInvisible(bool value) { setFlag(kChildrenInvisible, value); }
    bool childrenUndeletable() const { return flag(kChildrenUndeletable); }
    void setChildrenUndeletable(bool value) { setFlag(kChildrenUndeletable, value); }
    // True while every child added so far is ignored.
    bool allChildrenIgnored() const { return flag(kAllChildrenIgnored); }

    CVNodeDelegate* delegate() const override { return m_delegate; }
    void setDelegate(CVNodeDelegate* delegate) { m_delegate = delegate; }

    // Attaches a file or folder: parent link, ignore and remove flags passed down,
    // root folder (the outermost library or bundle above), sizes added. Nothing for null.
    void addChildFile(const NodePtr& child);

    // Sets the flag and passes it to every child whose flag differs, down the subtree.
    void setRemoveForbidden(bool value) override;
    void setIgnore(bool value) override;

    bool isDuplicateOf(CVNode& other) override { return isDuplicateOf(other, false); }
    bool isDuplicateOf(CVNode& other, bool skipChildrenSize);
    bool randomFilesAreEqual(CVFolder& other);
    bool childrenHaveEqualSize(CVFolder& other);

    // True while the folder exists.
    bool checkForIntegrity() const override;
    // A plain folder keeps its extension in its title; other folder types do not.
    std::string title() const override;

    // The comparison memo and the random source; the shared ones unless replaced (tests).
    static void setComparisonCache(CVNodeCache* cache);
    static void restartRandomSource(std::uint32_t start);

private:
    bool stopRequested() const { return m_delegate && m_delegate->stopSignaturesComparing(); }

    CVNodeDelegate* m_delegate = nullptr;
};

} // namespace corvel
