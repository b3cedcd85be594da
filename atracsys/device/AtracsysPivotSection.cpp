#include "atracsys/device/AtracsysPivotSection.h"

#include "host/core/Log.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace Kestrion::SpryTrack::AtracsysHelpers {

namespace {

// A number as strtod reads it, with nothing but blanks around it.
std::optional<double> strictNumber(const std::string& text) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(begin, &end);
    if (end == begin || errno == ERANGE || !std::isfinite(value))
        return std::nullopt;
    while (*end == ' ' || *end == '\t')
        ++end;
    if (*end != '\0')
        return std::nullopt;
    return value;
}

} // namespace

std::optional<Eigen::Vector3d> readPivot(const IniFile& ini, unsigned geometryId) {
    const auto section = ini.sections.find("pivot");
    if (section == ini.sections.end())
        return std::nullopt;
    Eigen::Vector3d tip;
    const char* const keys[] = {"x", "y", "z"};
    for (int i = 0; i < 3; ++i) {
        const auto value = section->second.find(keys[i]);
        if (value == section->second.end()) {
            KESTRION_LOG(Log::Warning, "",
                         "AtracsysTracking: Parsing INI file, geometry "
                             << geometryId << " is loaded without tip: could not find key \"" << keys[i]
                             << "\" in section \"pivot\"");
            return std::nullopt;
        }
        const std::optional<double> number = strictNumber(value->second);
        if (!number) {
            KESTRION_LOG(Log::Warning, "",
                         "AtracsysTracking: Parsing INI file, geometry "
                             << geometryId << " is loaded without tip: key \"" << keys[i]
                             << "\" in section \"pivot\" is not a finite number: \"" << value->second
                             << "\"");
            return std::nullopt;
        }
        tip[i] = *number;
    }
    return tip;
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
