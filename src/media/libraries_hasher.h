#pragma once
// CVMD5LibrariesHasher: remembers, across runs, a fingerprint of each photo library's
// description file in the user default "iPhotoLibraryHashes", so that a rewrite of
// the library is noticed. The fingerprint is the file's modification time as text
// (nanoseconds included); no digest of the content is computed.

#include <string>

namespace corvel {

class UserDefaults;

inline constexpr const char* kLibraryHashesKey = "iPhotoLibraryHashes";

class CVMD5LibrariesHasher {
public:
    explicit CVMD5LibrariesHasher(UserDefaults& defaults) : m_defaults(defaults) {}

    // Computes the fingerprint (empty when the file cannot be examined), stores it
    // under the path and answers it.
    std::string MD5HashFromFile(const std::string& path);
    // Stores the new fingerprint; true when none was stored before or it differs.
    bool libraryDidChangeFromLastScan(const std::string& path);

private:
    UserDefaults& m_defaults;
};

} // namespace corvel
