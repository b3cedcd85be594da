#include "host/stream/connection/CameraSelection.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace Kestrion {

// Out of line, so that the class's type information lives in this library alone and the cast
// from a plugin's stream finds it.
CameraSelection::~CameraSelection() = default;

std::string CameraSelection::serialText(std::uint64_t serialNumber) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(serialNumber));
    return text;
}

bool CameraSelection::parseSerial(const std::string& text, std::uint64_t& serialNumber) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.size() > (hex ? 16u : 20u))
        return false;
    for (const char c : digits)
        if (!(c >= '0' && c <= '9') && !(hex && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))))
            return false;
    errno = 0;
    char* end = nullptr;
    const unsigned long long value = std::strtoull(digits.c_str(), &end, hex ? 16 : 10);
    if (errno != 0 || *end != '\0')
        return false;
    serialNumber = value;
    return true;
}

} // namespace Kestrion
