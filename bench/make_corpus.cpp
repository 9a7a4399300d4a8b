// make_corpus: builds the benchmark corpus, a home-folder-like tree of about 200,000
// paths: mostly small files, a band of 50 kB to 2 MB files, a few files of 5 to 200 MB,
// a quarter of the files duplicated, duplicate folders, hard links, symbolic links,
// hidden and empty files. The same START gives the same corpus.
//   make_corpus [--same-size-group=N] OUT_DIR [PATHS] [START]
// PATHS scales the tree (1000000 for the million-path corpus: the same mix, five times
// the folders). --same-size-group=N makes N of the PATHS files exactly 65,536 bytes (one
// size group): they share their first 60 KiB, one in twenty is a copy of an earlier one
// and the others differ in their last 4 KiB.

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::mt19937_64 rng;

std::uint64_t uniform(std::uint64_t low, std::uint64_t high) {
    return std::uniform_int_distribution<std::uint64_t>(low, high)(rng);
}

std::uint64_t logUniform(double low, double high) {
    std::uniform_real_distribution<double> d(std::log(low), std::log(high));
    return static_cast<std::uint64_t>(std::exp(d(rng)));
}

// Writes size bytes generated from the content id (equal ids, equal bytes).
void writeContent(const std::string& path, std::uint64_t id, std::uint64_t size) {
    static std::vector<std::uint64_t> block(1 << 17);
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
    if (fd < 0) {
        std::perror(path.c_str());
        std::exit(1);
    }
    std::mt19937_64 content(id * 0x9E3779B97F4A7C15ULL + 1);
    const std::size_t words = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), size / 8 + 1));
    for (std::size_t w = 0; w < words; ++w)
        block[w] = content();
    std::uint64_t written = 0;
    while (written < size) {
        // Each 1 MiB block starts with its offset and the id, so blocks differ across the file.
        block[0] = written ^ id;
        const std::size_t n =
            static_cast<std::size_t>(std::min<std::uint64_t>(size - written, block.size() * 8));
        if (::write(fd, block.data(), n) != static_cast<ssize_t>(n)) {
            std::perror(path.c_str());
            std::exit(1);
        }
        written += n;
    }
    ::close(fd);
}

constexpr const char* kCorpusMarker = ".corvel-corpus";

constexpr std::uint64_t kGroupFileSize = 65536;
constexpr std::uint64_t kGroupSharedHead = 60 * 1024;
constexpr std::uint64_t kGroupFilesPerFolder = 500;

// One file of the same-size group: the shared head, then a tail made from tailId.
void writeGroupFile(const std::string& path, std::uint64_t tailId) {
    static std::vector<std::uint8_t> bytes;
    if (bytes.empty()) {
        bytes.resize(kGroupFileSize);
        std::mt19937_64 head(0x5EED5EED);
        for (std::size_t i = 0; i < kGroupSharedHead; i += 8) {
            const std::uint64_t word = head();
            std::memcpy(bytes.data() + i, &word, 8);
        }
    }
    std::mt19937_64 tail(tailId * 0x9E3779B97F4A7C15ULL + 7);
    for (std::size_t i = kGroupSharedHead; i < kGroupFileSize; i += 8) {
        const std::uint64_t word = tail();
        std::memcpy(bytes.data() + i, &word, 8);
    }
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
    if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        std::perror(path.c_str());
        std::exit(1);
    }
    ::close(fd);
}

struct Made {
    std::string path;
    std::uint64_t id;
    std::uint64_t size;
};

} // namespace

// A whole decimal number, or nothing.
std::optional<std::uint64_t> number(const char* text) {
    std::uint64_t value = 0;
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, value);
    if (error != std::errc() || stop != end || stop == text)
        return std::nullopt;
    return value;
}

int usage(const char* why) {
    std::fprintf(stderr,
                 "make_corpus: %s\nusage: make_corpus [--same-size-group=N] OUT_DIR [PATHS] [START]\n"
                 "  OUT_DIR is made new; an existing OUT_DIR is replaced only when it is empty or an\n"
                 "  earlier corpus (it holds %s); --same-size-group=N makes N of the files exactly\n"
                 "  65,536 bytes\n",
                 why, kCorpusMarker);
    return 2;
}

int main(int argc, char** argv) {
    std::uint64_t groupFiles = 0;
    std::vector<const char*> args;
    constexpr std::string_view kGroupOption = "--same-size-group=";
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg.starts_with(kGroupOption)) {
            const auto count = number(argv[i] + kGroupOption.size());
            if (!count)
                return usage("--same-size-group takes a whole number");
            groupFiles = *count;
        } else if (arg.starts_with("-")) {
            return usage((std::string("unknown option: ") + argv[i]).c_str());
        } else {
            args.push_back(argv[i]);
        }
    }
    if (args.empty() || args.size() > 3)
        return usage("one folder and at most two numbers");
    const fs::path out = args[0];
    const auto targetArg = args.size() > 1 ? number(args[1]) : std::optional<std::uint64_t>(200000);
    const auto start = args.size() > 2 ? number(args[2]) : std::optional<std::uint64_t>(42);
    if (!targetArg || !start)
        return usage("PATHS and START are whole numbers");
    if (groupFiles >= *targetArg / 2)
        return usage("the same-size group must be under half of PATHS");
    // Never deletes a folder it did not make.
    std::error_code error;
    if (fs::exists(out, error) && !fs::is_empty(out, error) && !fs::exists(out / kCorpusMarker, error))
        return usage((out.string() + " exists and is not a corpus").c_str());
    const std::uint64_t target = *targetArg;
    rng = std::mt19937_64(*start);
    fs::remove_all(out);
    fs::create_directories(out);
    std::ofstream(out / kCorpusMarker) << "made by make_corpus\n";

    // Folders: users/projects/years, 40 files a folder on average.
    const std::uint64_t folderCount = target / 40;
    std::vector<std::string> folders;
    for (std::uint64_t f = 0; f < folderCount; ++f) {
        std::string dir = (out / ("area" + std::to_string(f % 20)) / ("set" + std::to_string(f / 20 % 50)) /
                           ("dir" + std::to_string(f)))
                              .string();
        fs::create_directories(dir);
        folders.push_back(dir);
    }
    std::uint64_t paths = folderCount + 20 + 20 * 50;
    // The same-size group, in folders of its own (a store of fixed-size blocks).
    std::uint64_t groupCopies = 0;
    std::vector<std::uint64_t> tails;
    for (std::uint64_t g = 0; g < groupFiles; ++g) {
        const fs::path dir = out / "blocks" / ("part" + std::to_string(g / kGroupFilesPerFolder));
        if (g % kGroupFilesPerFolder == 0) {
            fs::create_directories(dir);
            ++paths;
        }
        const bool copy = g > 0 && uniform(0, 19) == 0;
        if (copy)
            ++groupCopies;
        tails.push_back(copy ? tails[uniform(0, g - 1)] : g);
        writeGroupFile((dir / ("block" + std::to_string(g) + ".bin")).string(), tails.back());
        ++paths;
    }
    if (groupFiles > 0)
        ++paths; // the blocks folder
    std::vector<Made> originals;
    std::uint64_t nextId = 1;
    std::uint64_t files = 0, duplicates = 0, band = 0, big = 0, links = 0, hardLinks = 0, hidden = 0,
                  empty = 0;
    while (paths < target) {
        const std::string& dir = folders[uniform(0, folders.size() - 1)];
        const std::uint64_t roll = uniform(0, 999);
        std::string name = "file" + std::to_string(files);
        std::uint64_t size;
        if (roll < 5) { // empty
            size = 0;
            ++empty;
        } else if (roll < 15) { // the 50 kB to 2 MB band
            size = logUniform(50000, 2000000);
            ++band;
        } else {
            size = logUniform(100, 48000);
        }
        if (uniform(0, 99) < 2) {
            name = "." + name;
            ++hidden;
        }
        const std::string path = dir + "/" + name + (uniform(0, 1) ? ".jpg" : ".dat");
        // A quarter of the files are copies of an earlier one.
        if (!originals.empty() && uniform(0, 3) == 0) {
            const Made& source = originals[uniform(0, originals.size() - 1)];
            writeContent(path, source.id, source.size);
            ++duplicates;
        } else {
            writeContent(path, nextId, size);
            originals.push_back({path, nextId++, size});
        }
        ++files;
        ++paths;
        if (uniform(0, 199) == 0) {
            ::symlink(path.c_str(), (path + ".link").c_str());
            ++links;
            ++paths;
        }
        if (uniform(0, 199) == 0) {
            ::link(path.c_str(), (path + ".hard").c_str());
            ++hardLinks;
            ++paths;
        }
    }
    // A few large files, two of them copied.
    const std::uint64_t bigSizes[] = {5u << 20, 20u << 20, 60u << 20, 120u << 20, 200u << 20};
    fs::create_directories(out / "big");
    for (std::size_t i = 0; i < std::size(bigSizes); ++i) {
        const std::string path = (out / "big" / ("video" + std::to_string(i) + ".mkv")).string();
        writeContent(path, 1000000 + i, bigSizes[i]);
        ++big;
        if (i % 2 == 1) {
            writeContent(path + ".copy.mkv", 1000000 + i, bigSizes[i]);
            ++big;
            ++duplicates;
        }
    }
    // Duplicate folders: a few whole folders copied.
    fs::create_directories(out / "backup");
    for (int i = 0; i < 20; ++i) {
        const std::string& dir = folders[uniform(0, folders.size() - 1)];
        fs::copy(dir, out / "backup" / ("copy" + std::to_string(i)),
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
    std::printf(
        "corpus %s: about %llu paths: %llu files (%llu copies), %llu in the 50 kB-2 MB band, %llu large, "
        "%llu empty, %llu hidden, %llu symbolic links, %llu hard links, %llu folders, 20 copied folders; "
        "%llu files of 65,536 bytes (%llu copies)\n",
        out.c_str(), static_cast<unsigned long long>(paths), static_cast<unsigned long long>(files),
        static_cast<unsigned long long>(duplicates), static_cast<unsigned long long>(band),
        static_cast<unsigned long long>(big), static_cast<unsigned long long>(empty),
        static_cast<unsigned long long>(hidden), static_cast<unsigned long long>(links),
        static_cast<unsigned long long>(hardLinks), static_cast<unsigned long long>(folderCount),
        static_cast<unsigned long long>(groupFiles), static_cast<unsigned long long>(groupCopies));
    return 0;
}
