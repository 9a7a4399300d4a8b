#pragma once
// JSON text for the command line's output. Strings are written byte-exact: valid UTF-8
// passes through, each byte of an invalid sequence becomes "\udcXX" (the
// surrogate-escape convention), so every path round-trips through decodeJsonString.

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace corvel::cli {

// The JSON string literal (with quotes) for the bytes.
std::string jsonString(std::string_view bytes);
// Appends that literal to out.
void appendJsonString(std::string& out, std::string_view bytes);
// The bytes of a JSON string literal's content (without quotes); "\udcXX" gives back byte XX.
std::string decodeJsonString(std::string_view literal);

// A minimal streaming writer for objects and arrays; the caller keeps the nesting right.
class JsonWriter {
public:
    void beginObject() {
        separate();
        m_out += '{';
        m_first = true;
    }
    void endObject() {
        m_out += '}';
        m_first = false;
    }
    void beginArray() {
        separate();
        m_out += '[';
        m_first = true;
    }
    void endArray() {
        m_out += ']';
        m_first = false;
    }
    void key(std::string_view name) {
        separate();
        appendJsonString(m_out, name);
        m_out += ':';
        m_first = true;
    }
    void value(std::string_view text) {
        separate();
        appendJsonString(m_out, text);
    }
    void value(const char* text) { value(std::string_view(text)); }
    void value(bool b) {
        separate();
        m_out += b ? "true" : "false";
    }
    void value(std::uint64_t n) {
        separate();
        appendNumber(n);
    }
    void value(std::int64_t n) {
        separate();
        appendNumber(n);
    }
    void value(int n) { value(static_cast<std::int64_t>(n)); }
    void nullValue() {
        separate();
        m_out += "null";
    }
    const std::string& text() const { return m_out; }
    // Writes what is buffered to the stream once it holds more than a megabyte (or at
    // once with force), so a large report never stands whole in memory.
    void flushTo(std::FILE* stream, bool force = false) {
        if (force || m_out.size() > (std::size_t{1} << 20)) {
            std::fwrite(m_out.data(), 1, m_out.size(), stream);
            m_out.clear();
        }
    }

private:
    template <typename Integer> void appendNumber(Integer n) {
        char digits[24];
        m_out.append(digits, std::to_chars(digits, digits + sizeof digits, n).ptr);
    }
    void separate() {
        if (!m_first)
            m_out += ',';
        m_first = false;
    }
    std::string m_out;
    bool m_first = true;
};

} // namespace corvel::cli
