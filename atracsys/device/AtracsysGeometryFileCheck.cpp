#include "atracsys/device/AtracsysGeometryFileCheck.h"

#include "host/core/Log.h"

#include <cstdlib>
#include <sstream>

namespace Kestrion::SpryTrack::AtracsysHelpers {

namespace {

/// A finding when the whole value is not a number of that kind; `read` is what the load made of it.
void checkNumber(const IniFile& ini, const std::string& path, const std::string& section,
                 const std::string& key, bool integer, const std::string& read,
                 std::vector<GeometryFileFinding>& findings) {
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
    findings.push_back({path + ": the value \"" + value + "\" of key \"" + key + "\" in section \"" +
                            section + "\" is not a number; it is read as " + read,
                        false});
}

std::string text(float value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

} // namespace

std::vector<GeometryFileFinding> geometryFileFindings(const IniFile& ini, const ftkGeometry& geometry,
                                                      const std::string& path) {
    std::vector<GeometryFileFinding> findings;
    const std::uint32_t count = geometry.pointsCount;
    checkNumber(ini, path, "geometry", "count", true, std::to_string(count), findings);
    checkNumber(ini, path, "geometry", "id", true, std::to_string(geometry.geometryId), findings);
    bool onePoint = count >= 2;
    for (std::uint32_t i = 0; i < count && i < FTK_MAX_FIDUCIALS; ++i) {
        const ftk3DPoint& p = geometry.positions[i];
        const std::string section = "fiducial" + std::to_string(i);
        checkNumber(ini, path, section, "x", false, text(p.x), findings);
        checkNumber(ini, path, section, "y", false, text(p.y), findings);
        checkNumber(ini, path, section, "z", false, text(p.z), findings);
        const ftk3DPoint& first = geometry.positions[0];
        onePoint = onePoint && p.x == first.x && p.y == first.y && p.z == first.z;
    }
    if (count < 3)
        findings.push_back({path + ": geometry " + std::to_string(geometry.geometryId) + " has " +
                                std::to_string(count) + " fiducial" + (count == 1 ? "" : "s") +
                                "; the camera needs at least 3 and refuses it",
                            true});
    else if (onePoint)
        findings.push_back({path + ": all " + std::to_string(count) + " fiducials of geometry " +
                                std::to_string(geometry.geometryId) +
                                " are at one point; the camera cannot find its distances",
                            false});
    return findings;
}

void warnAboutGeometryFile(const std::vector<GeometryFileFinding>& findings) {
    for (const GeometryFileFinding& finding : findings)
        KESTRION_LOG(Log::Warning, "", "AtracsysTracking: " << finding.text);
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
