#include "folder_fingerprint.h"

#include <algorithm>
#include <typeinfo>
#include <unordered_map>

#define XXH_STATIC_LINKING_ONLY // the streaming state on the stack
#include <xxhash.h>

#include "engine/folder.h"
#include "engine/node_type.h"
#include "platform/file_io.h"

namespace corvel {

namespace {

enum ChildKind : std::uint64_t { kFolderChild = 1, kEmptyFileChild = 2, kFileChild = 3 };

class Fingerprinter {
public:
    Fingerprinter(const std::function<SignatureDigest(CVFile&)>& digestOf,
                  const std::function<bool()>& keepGoing)
        : m_digestOf(digestOf), m_keepGoing(keepGoing) {}

    // As the folder comparison looks at a folder: its count of children and each child in
    // order (folders count exactly the children they list).
    FolderFingerprint of(const CVFolder& folder) {
        if (folder.type() == kNodeTypeApplication)
            return std::nullopt;
        // A sub-folder stands twice in its folder's list: fingerprinted once.
        if (const auto known = m_known.find(&folder); known != m_known.end())
            return known->second;
        XXH3_state_t state;
        XXH3_64bits_reset(&state);
        FolderFingerprint print;
        if (addChildren(state, folder))
            print = XXH3_64bits_digest(&state);
        m_known.emplace(&folder, print);
        return print;
    }

private:
    static void add(XXH3_state_t& state, std::uint64_t value) {
        XXH3_64bits_update(&state, &value, sizeof value);
    }

    bool addChildren(XXH3_state_t& state, const CVFolder& folder) {
        const auto& children = folder.children();
        add(state, children.size());
        for (const auto& child : children) {
            if (!m_keepGoing())
                return false;
            const std::string name = lastPathComponent(child->storedPath());
            add(state, name.size());
            XXH3_64bits_update(&state, name.data(), name.size());
            if (const auto* sub = dynamic_cast<const CVFolder*>(child.get())) {
                const FolderFingerprint print = of(*sub);
                if (!print)
                    return false;
                add(state, kFolderChild);
                add(state, *print);
                continue;
            }
            auto* file = dynamic_cast<CVFile*>(child.get());
            if (!file)
                return false;
            add(state, file->size());
            // Empty files match whatever they are; others only files of their class.
            if (file->size() == 0) {
                add(state, kEmptyFileChild);
                continue;
            }
            add(state, kFileChild);
            add(state, typeid(*file).hash_code());
            const SignatureDigest digest = m_digestOf(*file);
            if (digest.error != 0 || digest.length == 0)
                return false;
            add(state, digest.length);
            add(state, digest.streamed ? 0 : digest.hash);
        }
        return true;
    }

    const std::function<SignatureDigest(CVFile&)>& m_digestOf;
    const std::function<bool()>& m_keepGoing;
    std::unordered_map<const CVFolder*, FolderFingerprint> m_known;
};

} // namespace

FolderFingerprint folderFingerprint(const CVFolder& folder,
                                    const std::function<SignatureDigest(CVFile&)>& digestOf,
                                    const std::function<bool()>& keepGoing) {
    return Fingerprinter(digestOf, keepGoing).of(folder);
}

FolderCandidates::FolderCandidates(std::span<const NodePtr> nodes) {
    for (std::size_t k = 0; k < nodes.size(); ++k)
        if (dynamic_cast<const CVFolder*>(nodes[k].get()))
            m_folders.push_back(k);
}

FolderCandidates::FolderCandidates(std::span<const NodePtr> nodes,
                                   const std::vector<FolderFingerprint>& fingerprints)
    : FolderCandidates(nodes) {
    m_prints = fingerprints;
    for (const std::size_t k : m_folders)
        (m_prints[k] ? m_byPrint : m_withoutPrint).push_back(k);
    std::stable_sort(m_byPrint.begin(), m_byPrint.end(),
                     [&](std::size_t a, std::size_t b) { return *m_prints[a] < *m_prints[b]; });
}

std::vector<std::size_t> FolderCandidates::after(std::size_t i) const {
    const auto later = [i](const std::vector<std::size_t>& places) {
        return std::span(std::upper_bound(places.begin(), places.end(), i), places.end());
    };
    if (m_prints.empty() || !m_prints[i]) {
        const auto all = later(m_folders);
        return {all.begin(), all.end()};
    }
    // The fingerprinted folders sharing i's, from the first after i (places ascend
    // within one fingerprint), merged with every later folder without one.
    const std::uint64_t print = *m_prints[i];
    auto first = std::lower_bound(m_byPrint.begin(), m_byPrint.end(), print,
                                  [&](std::size_t k, std::uint64_t value) { return *m_prints[k] < value; });
    const auto last =
        std::upper_bound(first, m_byPrint.end(), print,
                         [&](std::uint64_t value, std::size_t k) { return value < *m_prints[k]; });
    first = std::upper_bound(first, last, i);
    const auto unprinted = later(m_withoutPrint);
    std::vector<std::size_t> places;
    places.reserve(static_cast<std::size_t>(last - first) + unprinted.size());
    std::merge(first, last, unprinted.begin(), unprinted.end(), std::back_inserter(places));
    return places;
}

} // namespace corvel
