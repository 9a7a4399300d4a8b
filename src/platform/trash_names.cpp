#include "trash_names.h"

namespace corvel {

namespace {

constexpr std::size_t kMaxExtension = 16;

bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

} // namespace

std::string_view truncateUtf8(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes)
        return text;
    std::size_t cut = maxBytes;
    // text[cut] is the first byte dropped: while it continues a character, that character
    // started inside the kept part and must go too.
    for (int step = 0; step < 3 && cut > 0 && isContinuationByte(text[cut]); ++step)
        --cut;
    return text.substr(0, cut);
}

std::string trashEntryName(std::string_view name, unsigned attempt, bool keepExtension) {
    std::string_view stem = name;
    std::string_view extension;
    if (keepExtension) {
        const auto dot = name.rfind('.');
        if (dot != std::string_view::npos && dot > 0 && name.size() - dot >= 2 &&
            name.size() - dot <= kMaxExtension) {
            stem = name.substr(0, dot);
            extension = name.substr(dot);
        }
    }
    const std::string counter = attempt > 1 ? "." + std::to_string(attempt) : std::string();
    const std::size_t room = kMaxTrashEntryName - extension.size() - counter.size();
    std::string out(truncateUtf8(stem, room));
    out += counter;
    out += extension;
    return out;
}

} // namespace corvel
