#include "system_version.h"

#include <cctype>
#include <sys/utsname.h>

#include "platform/text_format.h"

namespace corvel {

std::string systemVersionFromRelease(std::string_view release) {
    long parts[3] = {0, 0, 0};
    std::size_t i = 0;
    for (long& part : parts) {
        if (i >= release.size() || !std::isdigit(static_cast<unsigned char>(release[i])))
            break;
        long value = 0;
        while (i < release.size() && std::isdigit(static_cast<unsigned char>(release[i])) && value < 100000)
            value = value * 10 + (release[i++] - '0');
        part = value;
        if (i >= release.size() || release[i] != '.')
            break;
        ++i;
    }
    return formatf("%d.%d.%d", parts[0], parts[1], parts[2]);
}

std::string systemVersion() {
    struct utsname name {};
    if (::uname(&name) != 0)
        return "0.0.0";
    return systemVersionFromRelease(name.release);
}

} // namespace corvel
