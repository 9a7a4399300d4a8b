#include "json_writer.h"

#include <algorithm>
#include <cstdio>

#include "platform/file_url.h"

namespace corvel::cli {

namespace {

// Length of the valid UTF-8 sequence starting at s[i], or 0 when it is not one.
std::size_t validSequence(std::string_view s, std::size_t i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = byte(i);
    std::size_t length;
    std::uint32_t code;
    if (c < 0x80)
        return 1;
    if ((c & 0xE0) == 0xC0) {
        length = 2;
        code = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        length = 3;
        code = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        length = 4;
        code = c & 0x07;
    } else {
        return 0;
    }
    if (i + length > s.size())
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (byte(i + k) & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not valid UTF-8.
    static constexpr std::uint32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kMinimum[length] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
        return 0;
    return length;
}

void appendUtf8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

} // namespace

std::string jsonString(std::string_view bytes) {
    std::string out;
    appendJsonString(out, bytes);
    return out;
}

void appendJsonString(std::string& out, std::string_view bytes) {
    out += '"';
    char escape[8];
    for (std::size_t i = 0; i < bytes.size();) {
        // Printable ASCII other than the quote and the backslash goes out as it is, a run at a time.
        std::size_t plain = i;
        while (plain < bytes.size() && bytes[plain] >= 0x20 && bytes[plain] < 0x7F && bytes[plain] != '"' &&
               bytes[plain] != '\\')
            ++plain;
        if (plain > i) {
            out.append(bytes.substr(i, plain - i));
            i = plain;
            continue;
        }
        const auto c = static_cast<unsigned char>(bytes[i]);
        const std::size_t length = validSequence(bytes, i);
        if (length == 0) {
            std::snprintf(escape, sizeof escape, "\\udc%02x", c);
            out += escape;
            ++i;
            continue;
        }
        if (length == 1) {
            switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (c < 0x20) {
                    std::snprintf(escape, sizeof escape, "\\u%04x", c);
                    out += escape;
                } else {
                    out += static_cast<char>(c);
                }
            }
        } else {
            out.append(bytes.substr(i, length));
        }
        i += length;
    }
    out += '"';
}

std::string decodeJsonString(std::string_view literal) {
    std::string out;
    for (std::size_t i = 0; i < literal.size(); ++i) {
        if (literal[i] != '\\' || i + 1 >= literal.size()) {
            out += literal[i];
            continue;
        }
        const char e = literal[++i];
        switch (e) {
        case 'n':
            out += '\n';
            break;
        case 't':
            out += '\t';
            break;
        case 'r':
            out += '\r';
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'u': {
            std::uint32_t code = 0;
            for (int k = 1; k <= 4 && i + k < literal.size(); ++k)
                code = code * 16 + static_cast<std::uint32_t>(std::max(0, hexDigitValue(literal[i + k])));
            i += 4;
            if (code >= 0xDC80 && code <= 0xDCFF)
                out += static_cast<char>(code - 0xDC00); // an escaped raw byte
            else
                appendUtf8(out, code);
            break;
        }
        default:
            out += e;
        }
    }
    return out;
}

} // namespace corvel::cli
