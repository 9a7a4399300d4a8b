#pragma once
// Fingerprints of folders' content, so that a size group of many folders is not compared
// pair by pair. Two folders the folder comparison (CVFolder::isDuplicateOf) finds equal
// always have the same fingerprint: it hashes only what that comparison requires to be
// equal (each child's name and kind in order, files' sizes and node classes, the digests
// of their content signatures, sub-folders the same way). Equal fingerprints prove
// nothing; the comparison still decides. A folder whose fingerprint cannot stand for
// what the comparison looks at (a bundle, compared by its "Info.plist"; a file that could
// not be read, whose failure the comparison reports) has none, and may equal any folder.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "digest_reader.h"
#include "engine/node.h"

namespace corvel {

class CVFolder;

// From this many folders in one size group on, the search fingerprints them first. Below
// it, comparing pairs reads less: a fingerprint reads every file of every folder once,
// where a pair of different folders usually stops at its first file.
inline constexpr std::size_t kFingerprintedFoldersFrom = 16;

using FolderFingerprint = std::optional<std::uint64_t>;

// The fingerprint of folder; digestOf reads a file's signature digest (and may note a
// failure). Nothing when keepGoing turns false on the way.
FolderFingerprint folderFingerprint(const CVFolder& folder,
                                    const std::function<SignatureDigest(CVFile&)>& digestOf,
                                    const std::function<bool()>& keepGoing);

// The folders of a size group that may equal a given one, by fingerprint.
class FolderCandidates {
public:
    // Every folder may equal every other: no fingerprints taken.
    explicit FolderCandidates(std::span<const NodePtr> nodes);
    // fingerprints[k] belongs to nodes[k] (ignored for nodes that are not folders).
    FolderCandidates(std::span<const NodePtr> nodes, const std::vector<FolderFingerprint>& fingerprints);

    // The places after i of the folders that may equal the folder at i, in order: those
    // with its fingerprint and those without one; every later folder when it has none.
    std::vector<std::size_t> after(std::size_t i) const;
    // How many of the nodes are folders.
    std::size_t folderCount() const { return m_folders.size(); }

private:
    std::vector<std::size_t> m_folders;      // places of the folders, in order
    std::vector<FolderFingerprint> m_prints; // by place; empty: none taken
    std::vector<std::size_t> m_withoutPrint; // places of folders without one, in order
    std::vector<std::size_t> m_byPrint;      // places of fingerprinted folders, by fingerprint then place
};

} // namespace corvel
