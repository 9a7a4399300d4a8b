#include "volumes.h"

#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/vfs.h>

namespace corvel {

namespace {

std::string decodeMountField(const std::string& field) {
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const std::string octal = field.substr(i + 1, 3);
            if (octal.size() == 3 && octal.find_first_not_of("01234567") == std::string::npos) {
                out += static_cast<char>(std::stoi(octal, nullptr, 8));
                i += 3;
                continue;
            }
        }
        out += field[i];
    }
    return out;
}

bool isPrefixByComponents(std::string_view prefix, std::string_view path) {
    if (prefix == "/")
        return true;
    return path.starts_with(prefix) && (path.size() == prefix.size() || path[prefix.size()] == '/');
}

// Magic numbers of file systems whose files live elsewhere (statfs(2)).
constexpr long kRemoteMagic[] = {
    0x6969,     // NFS
    0x517B,     // SMB
    0xFF534D42, // CIFS
    0xFE534D42, // SMB2
    0x65735546, // FUSE
    0x564C,     // NCP
    0x5346414F, // AFS
    0x6B414653, // kAFS
    0x73757245, // Coda
    0x01021997, // v9fs
    0x47504653, // GPFS
    0x0BD00BD0, // Lustre
    0x19830326, // FhGFS/BeeGFS
    0x00C36400, // Ceph
    0x013111A8, // IBRIX
    0x7461636F, // OCFS2
};

} // namespace

std::vector<MountEntry> readMountTable(const std::string& mountInfoPath) {
    std::vector<MountEntry> table;
    std::ifstream in(mountInfoPath);
    std::string line;
    // id parent major:minor root mount-point options [optional fields...] - fstype source super-options
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string id, parent, device, root, mountPoint;
        if (!(fields >> id >> parent >> device >> root >> mountPoint))
            continue;
        std::string field;
        bool separator = false;
        while (fields >> field)
            if (field == "-") {
                separator = true;
                break;
            }
        MountEntry entry;
        if (!separator || !(fields >> entry.fileSystemType))
            continue;
        fields >> entry.source;
        entry.mountPoint = decodeMountField(mountPoint);
        entry.source = decodeMountField(entry.source);
        if (!entry.mountPoint.empty() && entry.mountPoint[0] == '/')
            table.push_back(std::move(entry));
    }
    return table;
}

std::string volumePathOfPath(std::string_view path, const std::vector<MountEntry>& table) {
    std::string best = "/";
    for (const auto& entry : table)
        if (entry.mountPoint.size() > best.size() && isPrefixByComponents(entry.mountPoint, path))
            best = entry.mountPoint;
    return best;
}

std::string volumePathOfPath(std::string_view path) {
    return volumePathOfPath(path, readMountTable());
}

bool isMountRoot(const std::string& path) {
    ItemStatus status;
    return itemStatus(AT_FDCWD, path.c_str(), status) == 0 && isMountRoot(path, status);
}

bool isMountRoot(const std::string& path, const ItemStatus& status) {
    if (status.mountRoot)
        return *status.mountRoot;
    // Kernels before 5.8 do not say: the mount table does (links are not resolved).
    return volumePathOfPath(path) == path;
}

bool isLocalVolume(const std::string& path) {
    struct statfs fs {};
    if (::statfs(path.c_str(), &fs) != 0)
        return false;
    for (const long magic : kRemoteMagic)
        if (static_cast<long>(static_cast<unsigned int>(fs.f_type)) == magic)
            return false;
    return true;
}

} // namespace corvel
