#include "digest_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>
#include <xxhash.h>

#include "engine/node.h"
#include "engine/node_type.h"
#include "engine/signature.h"
#include "platform/file_io.h"
#include "platform/item_status.h"

namespace corvel {

SignatureDigest digestOfFile(CVFile& file, KeptBytesBudget* budget) {
    // Signatures too large to keep go to a buffer each thread keeps and reuses.
    thread_local std::vector<std::uint8_t> scratch;
    SignatureDigest digest;
    // The type identifier matters only for documents (text is read whole); others skip it.
    const NodeType type = file.type();
    const std::string uti = type == kNodeTypeDocument ? file.uti() : std::string();
    const std::uint64_t size = file.size();
    const CVSignature::Kind kind = CVSignature::getSignatureTypeWithUTI(uti, size, type);
    const std::uint64_t expected = CVSignature::expectedLength(size, type, uti);
    const std::string path = file.path();
    const std::uint8_t* read = nullptr;
    if (kind != CVSignature::Bundle && expected <= CVSignature::kMaxBufferedSignature) {
        // One opening gives the signature and what removing the file needs: no second
        // look-up of the path when the file joins a group.
        const ReadOnlyFile opened(path, false);
        if (!opened.valid()) {
            digest.error = errno;
            return digest;
        }
        ItemStatus status;
        const bool seen = itemStatus(opened.fd(), "", status) == 0;
        // A file written to since the walk (grown, or cut and written again) no longer holds
        // the bytes filed under its size: it pairs with nothing, as one cut short.
        if (seen && status.size != size)
            return digest;
        digest.item = seen ? itemRemovalAccess(status) : ItemRemovalAccess{};
        std::uint8_t* into;
        if (expected <= kKeptSignatureBytes)
            digest.bytes = makeKeptBytes(expected, budget);
        if (digest.bytes) {
            into = digest.bytes.get();
        } else {
            if (scratch.size() < expected)
                scratch.resize(expected);
            into = scratch.data();
        }
        digest.length = CVSignature::readInto(opened.fd(), size, kind, into, &digest.error);
        read = into;
    } else {
        digest.length = CVSignature::readInto(path, size, type, uti, scratch, digest.streamed, &digest.error);
        read = scratch.data();
    }
    if (digest.length == 0)
        digest.bytes.reset();
    else if (!digest.streamed)
        digest.hash = XXH3_64bits(read, digest.length);
    return digest;
}

namespace {

// The members of one digest bucket split into classes of byte-equal signatures, in
// the members' order; files that can no longer be read are left out.
std::vector<std::vector<std::size_t>> confirmEqual(const std::vector<CVFile*>& files,
                                                   const std::vector<std::size_t>& members,
                                                   const std::vector<SignatureDigest>& digests,
                                                   const std::function<bool()>& keepGoing,
                                                   UnreadFiles* unread) {
    std::vector<std::vector<std::size_t>> classes;
    // Each class's first signature: kept with its digest, or read again into owned.
    std::vector<std::pair<const std::uint8_t*, std::uint64_t>> representatives;
    std::vector<std::unique_ptr<std::uint8_t[]>> owned;
    // Classes of signatures that compare from disk, with their first signature.
    std::vector<std::pair<std::unique_ptr<CVSignature>, std::size_t>> streams;
    thread_local std::vector<std::uint8_t> scratch;
    for (const std::size_t n : members) {
        if (!keepGoing())
            return {};
        CVFile* file = files[n];
        const SignatureDigest& digest = digests[n];
        const std::uint8_t* bytes = digest.bytes.get();
        std::uint64_t length = digest.keptLength();
        if (length == 0) {
            const NodeType type = file->type();
            const std::string uti = type == kNodeTypeDocument ? file->uti() : std::string();
            bool streamed = false;
            int error = 0;
            length = CVSignature::readInto(file->path(), file->size(), type, uti, scratch, streamed, &error);
            if (error != 0 && unread)
                unread->note(*file, error);
            if (length == 0)
                continue; // vanished or shrunk since its digest was taken
            if (streamed) {
                // Too large to hold: compare from disk through signatures of its own
                // (the node's signature belongs to the scan thread).
                auto signature = std::make_unique<CVSignature>(file->path(), file->size(), type, uti);
                auto same = std::find_if(streams.begin(), streams.end(), [&](const auto& stream) {
                    return stream.first->isEqualTo(*signature);
                });
                if (same == streams.end()) {
                    streams.emplace_back(std::move(signature), classes.size());
                    classes.push_back({n});
                    representatives.emplace_back(nullptr, 0);
                } else {
                    classes[same->second].push_back(n);
                }
                continue;
            }
            bytes = scratch.data();
        }
        std::size_t c = 0;
        for (; c < classes.size(); ++c)
            if (representatives[c].second == length &&
                std::memcmp(representatives[c].first, bytes, length) == 0)
                break;
        if (c < classes.size()) {
            classes[c].push_back(n);
            continue;
        }
        classes.push_back({n});
        if (bytes == scratch.data()) {
            owned.push_back(std::make_unique_for_overwrite<std::uint8_t[]>(length));
            std::memcpy(owned.back().get(), bytes, length);
            bytes = owned.back().get();
        }
        representatives.emplace_back(bytes, length);
    }
    return classes;
}

struct DigestKey {
    std::uint64_t length;
    std::uint64_t hash;
    bool operator==(const DigestKey&) const = default;
};

} // namespace

EqualClasses equalClasses(const std::vector<CVFile*>& files, const std::vector<std::size_t>& positions,
                          const std::vector<SignatureDigest>& digests, const std::function<bool()>& keepGoing,
                          UnreadFiles* unread) {
    // Each readable file under its digest; sorted, equal digests stand together.
    // Signatures that compare from disk have no hash: they share one bucket per length.
    std::vector<std::pair<DigestKey, std::size_t>> keyed;
    keyed.reserve(files.size());
    for (std::size_t n = 0; n < files.size(); ++n)
        if (digests[n].length > 0)
            keyed.emplace_back(DigestKey{digests[n].length, digests[n].streamed ? 0 : digests[n].hash}, n);
    std::sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) {
        return std::tie(a.first.hash, a.first.length, a.second) <
               std::tie(b.first.hash, b.first.length, b.second);
    });
    EqualClasses classes;
    std::vector<std::size_t> members;
    for (std::size_t start = 0, end = 0; start < keyed.size() && keepGoing(); start = end) {
        members.clear();
        for (end = start; end < keyed.size() && keyed[end].first == keyed[start].first; ++end)
            members.push_back(keyed[end].second);
        if (members.size() < 2)
            continue;
        for (const auto& equal : confirmEqual(files, members, digests, keepGoing, unread)) {
            if (equal.size() < 2)
                continue;
            auto& out = classes.emplace_back();
            out.reserve(equal.size());
            for (const std::size_t n : equal)
                out.push_back(ClassMember{files[n], positions[n], digests[n].item});
        }
    }
    std::sort(classes.begin(), classes.end(),
              [](const auto& a, const auto& b) { return a.front().position < b.front().position; });
    return classes;
}

} // namespace corvel
