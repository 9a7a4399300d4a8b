#include "app_info.h"

#ifndef CORVEL_VERSION
#define CORVEL_VERSION "0.0.0"
#endif

namespace corvel {

std::string applicationVersion() {
    return CORVEL_VERSION;
}
std::string applicationName() {
    return "Corvel";
}

} // namespace corvel
