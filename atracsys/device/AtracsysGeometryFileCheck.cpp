#include "atracsys/device/AtracsysGeometryFileCheck.h"

#include "host/core/Log.h"

#include <cstdlib>
#include <sstream>

namespace Kestrion::SpryTrack::AtracsysHelpers {

namespace {

/// Warns when the whole value is not a number of that kind; `read` is what the load made of it.
void checkNumber(const IniFile& ini, const std::string& path, const std::string& section,
                 const std::string& key, bool integer, const std::string& read) {
    const auto found = ini.sections.find(section);
    if (found == ini.sections.end() || found->second.count(key) == 0)
        return;
    const std::string& value = found->second.at(key);
    char* end = nullptr;
    if (integer)
        std::strtol(value.c_str(), &end, 10);
    else
        std::strtod(value.c_str(), &end);
    if (!value.empty() && end == value.c_str() + value.size())
        return;
    KESTRION_LOG(Log::Warning, "",
                 "AtracsysTracking: " << path << ": the value \"" << value << "\" of key \"" << key
                                      << "\" in section \"" << section << "\" is not a number; it is read as "
                                      << read);
}

std::string text(float value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

} // namespace

void warnAboutGeometryFile(const IniFile& ini, const ftkGeometry& geometry, const std::string& path) {
    if (!Log::isAccepted(Log::Warning, ""))
        return;
    const std::uint32_t count = geometry.pointsCount;
    checkNumber(ini, path, "geometry", "count", true, std::to_string(count));
    checkNumber(ini, path, "geometry", "id", true, std::to_string(geometry.geometryId));
    bool onePoint = count >= 2;
    for (std::uint32_t i = 0; i < count && i < FTK_MAX_FIDUCIALS; ++i) {
        const ftk3DPoint& p = geometry.positions[i];
        const std::string section = "fiducial" + std::to_string(i);
        checkNumber(ini, path, section, "x", false, text(p.x));
        checkNumber(ini, path, section, "y", false, text(p.y));
        checkNumber(ini, path, section, "z", false, text(p.z));
        const ftk3DPoint& first = geometry.positions[0];
        onePoint = onePoint && p.x == first.x && p.y == first.y && p.z == first.z;
    }
    if (count < 3)
        KESTRION_LOG(Log::Warning, "",
                     "AtracsysTracking: " << path << ": geometry " << geometry.geometryId << " has " << count
                                          << " fiducial" << (count == 1 ? "" : "s")
                                          << "; the camera needs at least 3 and refuses it");
    else if (onePoint)
        KESTRION_LOG(Log::Warning, "",
                     "AtracsysTracking: " << path << ": all " << count << " fiducials of geometry "
                                          << geometry.geometryId
                                          << " are at one point; the camera cannot find its distances");
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
