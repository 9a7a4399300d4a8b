#pragma once
// CVSignature: the comparable content fingerprint of one scanned node. It is not a hash
// but a copy of raw bytes: the whole file (kind 0), a fixed sample of it (kind 1: the
// first 10000 bytes and 32 pieces of 300 bytes spread evenly over the rest), or the
// whole "Contents/Info.plist" of a bundle (kind 2). Two signatures are equal when their
// bytes are. The file is read when the signature is made; a file that cannot be opened
// or is shorter than expected gives an empty signature (length 0), equal to nothing.
// When the open or a read failed (not merely came short: the file shrank since the walk),
// the signature and the readers below also tell the errno, for the scan to name the file.
//
// A whole-file signature longer than kMaxBufferedSignature (large text documents) is not
// held in memory: it remembers the file and compares by reading both files in chunks,
// which answers exactly as comparing the buffers would.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "node_type.h"

namespace corvel {

class CVSignature {
public:
    enum Kind : std::int32_t { WholeFile = 0, Sampled = 1, Bundle = 2 };

    static constexpr std::uint32_t kSampleCount = 32;
    static constexpr std::uint64_t kSampleSize = 300;
    static constexpr std::uint64_t kHeadSize = 10000;
    static constexpr std::uint64_t kSampledKindMinimumSize = 500000;
    static constexpr std::uint64_t kMaxBufferedSignature = std::uint64_t{16} << 20;

    // Reads the signature of the node at path (size in bytes from the walk, node type, type identifier).
    CVSignature(std::string path, std::uint64_t size, NodeType nodeType, const std::string& uti);

    // The kind a node gets: bundles (node type 9) 2; documents conforming to public.text 0;
    // others 1 from kSampledKindMinimumSize bytes on, else 0.
    static Kind getSignatureTypeWithUTI(const std::string& uti, std::uint64_t size, NodeType nodeType);

    // The reader: count pieces of pieceSize bytes after a head, as described above; when
    // count * pieceSize + 10000 > size the whole file is one piece of (size mod 2^32)
    // bytes. Answers the bytes, or nothing when the file cannot be opened or a read
    // comes short; error (when given) gets the errno of a failed open or read, else 0.
    // Exposed for tests and benchmarks.
    static std::unique_ptr<std::uint8_t[]> computeFileSignature(const std::string& path, std::uint64_t size,
                                                                std::uint32_t count, std::uint64_t pieceSize,
                                                                std::uint64_t& length, int* error = nullptr);

    // How many bytes the signature of such a node holds; UINT64_MAX for a bundle, whose
    // length is that of a file inside it.
    static std::uint64_t expectedLength(std::uint64_t size, NodeType nodeType, const std::string& uti);

    // Reads what the signature of such a node would hold into scratch, reusing its
    // memory, without making a signature. Answers the length (0: no signature); for a
    // signature that would compare from disk nothing is read and streamed is set.
    // error (when given) gets the errno of a failed open or read of the node's file, else
    // 0 (also for a bundle, whose "Info.plist" may simply be missing).
    static std::uint64_t readInto(const std::string& path, std::uint64_t size, NodeType nodeType,
                                  const std::string& uti, std::vector<std::uint8_t>& scratch, bool& streamed,
                                  int* error = nullptr);

    // readInto for a node's file already open as fd, of a kind other than Bundle whose
    // signature is held in memory (not one that compares from disk), into a buffer of
    // expectedLength bytes; error as above.
    static std::uint64_t readInto(int fd, std::uint64_t size, Kind kind, std::uint8_t* into,
                                  int* error = nullptr);

    bool isEqualTo(const CVSignature& other) const;

    Kind type() const { return m_type; }
    const std::string& nodePath() const { return m_nodePath; }
    std::uint64_t nodeSize() const { return m_nodeSize; }
    // The collected bytes; null when empty or when the signature compares from the file.
    const std::uint8_t* bytes() const { return m_bytes.get(); }
    std::uint64_t length() const { return m_length; }
    // True when the signature compares by reading its file rather than from memory.
    bool isStreamed() const { return !m_streamPath.empty(); }
    // The errno of the open or read of the node's file that failed when the signature was
    // made; 0 when it was read, came short, or is a bundle's.
    int readError() const { return m_readError; }

private:
    void calculateSignature();
    void wholeFile(const std::string& path, std::uint64_t size);

    Kind m_type;
    std::string m_nodePath;
    std::uint64_t m_nodeSize;
    std::unique_ptr<std::uint8_t[]> m_bytes;
    std::uint64_t m_length = 0;
    std::string m_streamPath;
    int m_readError = 0;
};

} // namespace corvel
