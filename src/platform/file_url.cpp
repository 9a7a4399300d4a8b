#include "file_url.h"

#include <cctype>

namespace corvel {

namespace {

bool startsWithIgnoringCase(std::string_view s, std::string_view prefix) {
    if (s.size() < prefix.size())
        return false;
    for (std::size_t i = 0; i < prefix.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(s[i])) != prefix[i])
            return false;
    return true;
}

} // namespace

std::optional<std::string> filePathFromURLString(std::string_view url) {
    if (!startsWithIgnoringCase(url, "file:"))
        return std::nullopt;
    std::string_view rest = url.substr(5);
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        const auto slash = rest.find('/');
        if (slash == std::string_view::npos)
            return std::nullopt;
        const std::string_view host = rest.substr(0, slash);
        if (!host.empty() && !startsWithIgnoringCase(host, "localhost"))
            return std::nullopt;
        if (!host.empty() && host.size() != 9)
            return std::nullopt;
        rest.remove_prefix(slash);
    }
    if (rest.empty() || rest[0] != '/')
        return std::nullopt;
    // A query or fragment is not part of the path.
    rest = rest.substr(0, rest.find_first_of("?#"));
    std::string path;
    path.reserve(rest.size());
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] != '%') {
            path += rest[i];
            continue;
        }
        if (i + 2 >= rest.size())
            return std::nullopt;
        const int hi = hexDigitValue(rest[i + 1]);
        const int lo = hexDigitValue(rest[i + 2]);
        if (hi < 0 || lo < 0)
            return std::nullopt;
        path += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return path;
}

int hexDigitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::string percentEncode(std::string_view text, std::string_view keep) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (std::isalnum(u) || c == '-' || c == '.' || c == '_' || c == '~' ||
            keep.find(c) != std::string_view::npos) {
            out += c;
        } else {
            out += '%';
            out += kHex[u >> 4];
            out += kHex[u & 0x0F];
        }
    }
    return out;
}

std::string fileURLStringFromPath(std::string_view path) {
    return "file://" + percentEncode(path, "/");
}

} // namespace corvel
