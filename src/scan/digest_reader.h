#pragma once
// Digests of files' content signatures (length and a 64-bit hash of the bytes), and
// the files of a size group sorted into classes of equal signatures by them.
// Signatures of at most kKeptSignatureBytes are kept with their digest while the scan's
// KeptBytesBudget allows, so that files sharing a digest can be confirmed byte for byte
// without reading them again; larger ones, and those the budget leaves out, are read
// again for that.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "kept_bytes_budget.h"
#include "platform/file_access.h"
#include "unread_files.h"

namespace corvel {

class CVFile;

struct SignatureDigest {
    std::uint64_t length = 0;
    std::uint64_t hash = 0;
    // The signature compares from disk (a large text document): no hash was taken.
    bool streamed = false;
    // The signature's length bytes when it is small enough to keep and the budget
    // allowed them, else null.
    KeptBytes bytes;
    // What removing the file needs to know of it, read from the same opening; nothing
    // when the signature was read some other way (a bundle, a streamed signature).
    std::optional<ItemRemovalAccess> item;
    // The errno of the open or read that failed (length is then 0); 0 when the file was
    // read, or came short of the size the walk saw (it changed meanwhile).
    int error = 0;

    std::uint64_t keptLength() const { return bytes ? length : 0; }
};

inline constexpr std::uint64_t kKeptSignatureBytes = std::uint64_t{64} * 1024;

// The digest of a file's signature, computed on the calling thread. The bytes of a
// signature of at most kKeptSignatureBytes are kept when budget allows them (always
// when budget is null).
SignatureDigest digestOfFile(CVFile& file, KeptBytesBudget* budget);

// A file of a size group in a class of equal signatures.
struct ClassMember {
    CVFile* file = nullptr;
    std::size_t position = 0; // the file's place in its size group
    std::optional<ItemRemovalAccess> item;
};
// Classes of two or more files with equal signatures; members in group order, classes
// in the order of their first members.
using EqualClasses = std::vector<std::vector<ClassMember>>;

// The files (with their places and digests) sorted into classes of equal signatures:
// bucketed by digest, then confirmed byte for byte from the kept bytes, or by reading
// the signatures again. Empty files and files that can no longer be read join none;
// those that fail to open or read when read again are noted in unread (when given).
// Answers what it has when keepGoing turns false.
EqualClasses equalClasses(const std::vector<CVFile*>& files, const std::vector<std::size_t>& positions,
                          const std::vector<SignatureDigest>& digests, const std::function<bool()>& keepGoing,
                          UnreadFiles* unread = nullptr);

} // namespace corvel
