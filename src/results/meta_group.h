#pragma once
// CVMetaGroup: one category of the results (all files, Other, Documents, Pictures,
// Music, Movies, Archives, Folders) with its counts and size.
//
// Threads: the scan thread adds to the counters while the interface reads them; the
// counters are atomic, so a reader on any thread sees a value some moment of the scan
// had (count, size and files count are read one by one, not as a whole). The other
// properties belong to the main thread.

#include <atomic>
#include <cstdint>
#include <string>

namespace corvel {

enum MetaGroupID : std::int32_t {
    kMetaGroupAll = 0,
    kMetaGroupOther = 1,
    kMetaGroupDocuments = 2,
    kMetaGroupPictures = 3,
    kMetaGroupMusic = 4,
    kMetaGroupMovies = 5,
    kMetaGroupArchives = 6,
    kMetaGroupFolders = 7,
};

struct RGBColor {
    double red, green, blue;
    friend bool operator==(const RGBColor&, const RGBColor&) = default;
};

class CVMetaGroup {
public:
    explicit CVMetaGroup(std::int32_t groupID);

    std::int32_t groupID() const { return m_groupID; }
    const std::string& name() const { return m_name; }
    std::uint64_t count() const { return m_count.load(std::memory_order_relaxed); }
    std::uint64_t size() const { return m_size.load(std::memory_order_relaxed); }
    std::uint64_t filesCount() const { return m_filesCount.load(std::memory_order_relaxed); }
    bool autocollected() const { return m_autocollected; }
    void setAutocollected(bool value) { m_autocollected = value; }
    const std::string& iconPath() const { return m_iconPath; }
    void setIconPath(std::string path) { m_iconPath = std::move(path); }
    RGBColor color() const { return colorForID(m_groupID); }
    std::string dotImage() const { return imageForID(m_groupID); }

    void incCount() { m_count.fetch_add(1, std::memory_order_relaxed); }
    void incFilesCount(std::uint64_t n) { m_filesCount.fetch_add(n, std::memory_order_relaxed); }
    void incSize(std::uint64_t n) { m_size.fetch_add(n, std::memory_order_relaxed); }

    // The localised category name ("" for all files), its colour (fractions of 255)
    // and the resource name of its dot image ("" for none).
    static std::string stringType(std::int32_t groupID);
    static RGBColor colorForID(std::int32_t groupID);
    static std::string imageForID(std::int32_t groupID);
    // The string-table key of the category's name.
    static const char* nameKey(std::int32_t groupID);

private:
    bool m_autocollected = false;
    std::int32_t m_groupID;
    std::string m_name;
    std::atomic<std::uint64_t> m_count{0};
    std::atomic<std::uint64_t> m_size{0};
    std::string m_iconPath;
    std::atomic<std::uint64_t> m_filesCount{0};
};

} // namespace corvel
