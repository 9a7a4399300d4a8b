#include "text_format.h"

#include <cctype>
#include <cstdio>
#include <optional>

namespace corvel {

namespace {

std::string valueAsText(const PropertyValue& v) {
    if (v.isNull())
        return {};
    if (v.isString() || v.isNumber())
        return v.type() == PropertyValue::Type::Bool ? std::to_string(v.toInt64()) : v.toString();
    return v.description();
}

template <typename T> std::string printfOne(const std::string& directive, T value) {
    char small[64];
    const int n = std::snprintf(small, sizeof small, directive.c_str(), value);
    if (n < 0)
        return {};
    if (static_cast<std::size_t>(n) < sizeof small)
        return std::string(small, static_cast<std::size_t>(n));
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), directive.c_str(), value);
    big.resize(static_cast<std::size_t>(n));
    return big;
}

} // namespace

// One conversion with its flags, width and precision in directive ("%-8.2"); nothing for a
// conversion character it does not know.
std::optional<std::string> convertOne(const std::string& directive, char conv, const PropertyValue& arg) {
    switch (conv) {
    case '@':
    case 's':
        return printfOne(directive + 's', valueAsText(arg).c_str());
    case 'd':
    case 'i':
        return printfOne(directive + "lld", static_cast<long long>(arg.toInt64()));
    case 'u':
    case 'x':
    case 'X':
    case 'o':
        return printfOne(directive + "ll" + conv, static_cast<unsigned long long>(arg.toUInt64()));
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
        return printfOne(directive + conv, arg.toDouble());
    case 'c':
        if (arg.isString())
            return arg.asString()->substr(0, 1);
        return std::string(1, static_cast<char>(arg.toInt64()));
    default:
        return std::nullopt;
    }
}

std::string formatString(std::string_view format, std::span<const PropertyValue> args) {
    std::string out;
    out.reserve(format.size() + 16);
    std::size_t nextArg = 0;
    std::size_t i = 0;
    while (i < format.size()) {
        const char c = format[i];
        if (c != '%') {
            out += c;
            ++i;
            continue;
        }
        const std::size_t start = i++;
        if (i < format.size() && format[i] == '%') {
            out += '%';
            ++i;
            continue;
        }
        // Positional argument: digits followed by '$'.
        std::size_t argIndex = nextArg;
        bool positional = false;
        {
            std::size_t j = i;
            std::size_t number = 0;
            while (j < format.size() && std::isdigit(static_cast<unsigned char>(format[j])))
                number = number * 10 + static_cast<std::size_t>(format[j++] - '0');
            if (j > i && j < format.size() && format[j] == '$' && number > 0) {
                argIndex = number - 1;
                positional = true;
                i = j + 1;
            }
        }
        std::string directive = "%";
        while (i < format.size() && std::string_view("-+ #0").find(format[i]) != std::string_view::npos)
            directive += format[i++];
        while (i < format.size() && (std::isdigit(static_cast<unsigned char>(format[i])) || format[i] == '.'))
            directive += format[i++];
        while (i < format.size() && std::string_view("hlqLzjt").find(format[i]) != std::string_view::npos)
            ++i;
        if (i >= format.size()) {
            out.append(format.substr(start));
            break;
        }
        const char conv = format[i++];
        const PropertyValue& arg = argIndex < args.size() ? args[argIndex] : PropertyValue::null();
        if (!positional)
            ++nextArg;
        if (const auto converted = convertOne(directive, conv, arg)) {
            out += *converted;
        } else {
            out.append(format.substr(start, i - start));
            if (!positional)
                --nextArg;
        }
    }
    return out;
}

} // namespace corvel
