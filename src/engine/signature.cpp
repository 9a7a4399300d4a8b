#include "signature.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "node_type.h"
#include "platform/file_io.h"
#include "platform/type_identifiers.h"

namespace corvel {

namespace {

// What a read came to: kRead, kShortRead, or the errno of the failed read.
constexpr int kRead = 0;
constexpr int kShortRead = -1;

// Sets *error to the errno behind outcome (0 for a read or a short one), when error is given.
void tell(int* error, int outcome) {
    if (error)
        *error = outcome > 0 ? outcome : 0;
}

// Reads exactly length bytes at offset.
int readAt(int fd, std::uint8_t* into, std::uint64_t length, std::uint64_t offset) {
    while (length > 0) {
        const ssize_t n = ::pread(fd, into, length, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        if (n == 0)
            return kShortRead;
        into += n;
        length -= static_cast<std::uint64_t>(n);
        offset += static_cast<std::uint64_t>(n);
    }
    return kRead;
}

// Compares the first length bytes of two files in chunks.
bool filesEqual(const std::string& a, const std::string& b, std::uint64_t length) {
    ReadOnlyFile fa(a);
    ReadOnlyFile fb(b);
    if (!fa.valid() || !fb.valid())
        return false;
    constexpr std::uint64_t kChunk = std::uint64_t{1} << 20;
    std::vector<std::uint8_t> ba(kChunk);
    std::vector<std::uint8_t> bb(kChunk);
    for (std::uint64_t offset = 0; offset < length; offset += kChunk) {
        const std::uint64_t n = std::min(kChunk, length - offset);
        if (readAt(fa.fd(), ba.data(), n, offset) != kRead || readAt(fb.fd(), bb.data(), n, offset) != kRead)
            return false;
        if (std::memcmp(ba.data(), bb.data(), n) != 0)
            return false;
    }
    return true;
}

} // namespace

CVSignature::CVSignature(std::string path, std::uint64_t size, NodeType nodeType, const std::string& uti)
    : m_type(getSignatureTypeWithUTI(uti, size, nodeType)), m_nodePath(std::move(path)), m_nodeSize(size) {
    calculateSignature();
}

CVSignature::Kind CVSignature::getSignatureTypeWithUTI(const std::string& uti, std::uint64_t size,
                                                       NodeType nodeType) {
    if (nodeType == kNodeTypeApplication)
        return Bundle;
    if (nodeType == kNodeTypeDocument && TypeIdentifiers::shared().conformsTo(uti, "public.text"))
        return WholeFile;
    return size >= kSampledKindMinimumSize ? Sampled : WholeFile;
}

namespace {

// The reader's plan for a file of this size: head bytes, then pieces of piece bytes.
struct ReadPlan {
    std::uint64_t head, piece, pieces, stride, total;
};

ReadPlan planFor(std::uint64_t size, std::uint32_t count, std::uint64_t pieceSize) {
    ReadPlan plan{CVSignature::kHeadSize, pieceSize, count, 0, 0};
    if (static_cast<std::uint64_t>(count) * pieceSize + CVSignature::kHeadSize > size) {
        plan.head = 0;
        plan.piece = size & 0xFFFFFFFFu;
        plan.pieces = 1;
    }
    plan.total = plan.pieces * plan.piece + plan.head;
    plan.stride = (size - plan.head) / plan.pieces;
    return plan;
}

// kRead, kShortRead or an errno, as readAt.
int readPlan(int fd, const ReadPlan& plan, std::uint8_t* into) {
    if (plan.head > 0)
        if (const int outcome = readAt(fd, into, plan.head, 0); outcome != kRead)
            return outcome;
    if (plan.piece > 0)
        for (std::uint64_t k = 0; k < plan.pieces; ++k)
            if (const int outcome =
                    readAt(fd, into + plan.head + k * plan.piece, plan.piece, plan.head + k * plan.stride);
                outcome != kRead)
                return outcome;
    return kRead;
}

} // namespace

std::uint64_t CVSignature::expectedLength(std::uint64_t size, NodeType nodeType, const std::string& uti) {
    switch (getSignatureTypeWithUTI(uti, size, nodeType)) {
    case Bundle:
        return UINT64_MAX;
    case Sampled:
        return planFor(size, kSampleCount, kSampleSize).total;
    case WholeFile:
        break;
    }
    return planFor(size, 1, size).total;
}

std::uint64_t CVSignature::readInto(const std::string& path, std::uint64_t size, NodeType nodeType,
                                    const std::string& uti, std::vector<std::uint8_t>& scratch,
                                    bool& streamed, int* error) {
    streamed = false;
    tell(error, kRead);
    bool bundle = false;
    std::string file = path;
    std::uint64_t fileSize = size;
    std::uint32_t count = 1;
    std::uint64_t pieceSize = size;
    switch (getSignatureTypeWithUTI(uti, size, nodeType)) {
    case Bundle: {
        bundle = true;
        file = path + "/Contents/Info.plist";
        struct stat st {};
        fileSize = pieceSize = ::stat(file.c_str(), &st) == 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
        break;
    }
    case Sampled:
        count = kSampleCount;
        pieceSize = kSampleSize;
        break;
    case WholeFile:
        break;
    }
    if (count == 1 && (fileSize & 0xFFFFFFFFu) > kMaxBufferedSignature) {
        // Compared from disk by the signature itself; only its length matters here.
        const CVSignature probe(path, size, nodeType, uti);
        streamed = probe.isStreamed();
        tell(error, probe.readError());
        return probe.length();
    }
    const ReadOnlyFile fd(file);
    if (!fd.valid()) {
        if (!bundle)
            tell(error, errno);
        return 0;
    }
    const ReadPlan plan = planFor(fileSize, count, pieceSize);
    if (scratch.size() < plan.total)
        scratch.resize(plan.total);
    const int outcome = readPlan(fd.fd(), plan, scratch.data());
    if (!bundle)
        tell(error, outcome);
    return outcome == kRead ? plan.total : 0;
}

std::uint64_t CVSignature::readInto(int fd, std::uint64_t size, Kind kind, std::uint8_t* into, int* error) {
    const ReadPlan plan = kind == Sampled ? planFor(size, kSampleCount, kSampleSize) : planFor(size, 1, size);
    const int outcome = readPlan(fd, plan, into);
    tell(error, outcome);
    return outcome == kRead ? plan.total : 0;
}

std::unique_ptr<std::uint8_t[]> CVSignature::computeFileSignature(const std::string& path, std::uint64_t size,
                                                                  std::uint32_t count,
                                                                  std::uint64_t pieceSize,
                                                                  std::uint64_t& length, int* error) {
    length = 0;
    tell(error, kRead);
    const ReadOnlyFile fd(path);
    if (!fd.valid()) {
        tell(error, errno);
        return nullptr;
    }
    const ReadPlan plan = planFor(size, count, pieceSize);
    auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(plan.total);
    const int outcome = readPlan(fd.fd(), plan, buffer.get());
    tell(error, outcome);
    if (outcome != kRead)
        return nullptr;
    length = plan.total;
    return buffer;
}

void CVSignature::wholeFile(const std::string& path, std::uint64_t size) {
    const std::uint64_t length = size & 0xFFFFFFFFu;
    if (length <= kMaxBufferedSignature) {
        m_bytes = computeFileSignature(path, size, 1, size, m_length, &m_readError);
        return;
    }
    // Too large to hold: check now that the file has the bytes, compare later from disk.
    struct stat st {};
    const ReadOnlyFile fd(path);
    if (!fd.valid() || ::fstat(fd.fd(), &st) != 0) {
        m_readError = errno;
        return;
    }
    // A file grown or cut since the walk does not hold the bytes filed under its size.
    if (static_cast<std::uint64_t>(st.st_size) != size)
        return;
    m_streamPath = path;
    m_length = length;
}

void CVSignature::calculateSignature() {
    switch (m_type) {
    case Bundle: {
        const std::string plist = m_nodePath + "/Contents/Info.plist";
        struct stat st {};
        const std::uint64_t plistSize =
            ::stat(plist.c_str(), &st) == 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
        wholeFile(plist, plistSize);
        m_readError = 0; // "Info.plist" may simply be missing: nothing to name
        break;
    }
    case Sampled:
        m_bytes =
            computeFileSignature(m_nodePath, m_nodeSize, kSampleCount, kSampleSize, m_length, &m_readError);
        break;
    case WholeFile:
        wholeFile(m_nodePath, m_nodeSize);
        break;
    }
}

bool CVSignature::isEqualTo(const CVSignature& other) const {
    if (m_length == 0 || m_length != other.m_length)
        return false;
    if (isStreamed() || other.isStreamed()) {
        if (!isStreamed() || !other.isStreamed())
            return false;
        return filesEqual(m_streamPath, other.m_streamPath, m_length);
    }
    if (!other.m_bytes)
        return false;
    return std::memcmp(m_bytes.get(), other.m_bytes.get(), m_length) == 0;
}

} // namespace corvel
