#include "atracsys/device/AtracsysGeometryHelpers.h"

#include "atracsys/device/AtracsysGeometryFileCheck.h"
#include "atracsys/device/AtracsysPivotSection.h"

#include "host/core/Log.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>

namespace Kestrion::SpryTrack::AtracsysHelpers {

namespace {

const std::string* findValue(IniFile& ini, const std::string& section, const std::string& key) {
    if (!checkKey(ini, section, key))
        return nullptr;
    return &ini.sections.at(section).at(key);
}

// Rounds to single precision as the processor does; a double beyond the float range becomes an
// infinity instead of an undefined conversion.
float toSinglePrecision(double value) {
    if (std::isfinite(value) && std::fabs(value) > static_cast<double>(FLT_MAX))
        return value > 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

std::string readText(std::istream& in) {
    std::string text;
    std::string line;
    while (std::getline(in, line)) {
        text += line;
        text += '\n';
    }
    return text;
}

// The geometry record of a parsed file.
std::optional<ftkGeometry> fromIni(IniFile& ini) {
    ftkGeometry geometry{};
    unsigned count = 0;
    unsigned id = 0;
    if (!checkSection(ini, "geometry") || !assignUint32(ini, "geometry", "count", &count) ||
        !assignUint32(ini, "geometry", "id", &id))
        return std::nullopt;
    geometry.geometryId = id;

    KESTRION_LOG(Log::Info, "", "Loading geometry " << id << ", composed of " << count << " fiducials");

    // The record holds at most FTK_MAX_FIDUCIALS positions: a larger count cannot be loaded.
    constexpr unsigned capacity = FTK_MAX_FIDUCIALS;
    if (count > capacity) {
        KESTRION_LOG(Log::Error, "",
                     "AtracsysTracking: Parsing INI file, geometry "
                         << id << " has " << count << " fiducials, more than the maximum of " << capacity);
        return std::nullopt;
    }
    geometry.pointsCount = count;

    for (unsigned i = 0; i < count; ++i) {
        const std::string section = "fiducial" + std::to_string(i);
        float x = 0.0f, y = 0.0f, z = 0.0f;
        if (!checkSection(ini, section) || !assignFloatXX(ini, section, "x", &x) ||
            !assignFloatXX(ini, section, "y", &y) || !assignFloatXX(ini, section, "z", &z))
            return std::nullopt;
        geometry.positions[i].x = x;
        geometry.positions[i].y = y;
        geometry.positions[i].z = z;
    }
    return geometry;
}

std::optional<GeometryFile> fromText(std::string text, const std::string& path) {
    IniFile ini;
    if (!ini.parse(text.data(), text.size()))
        return std::nullopt;
    std::optional<ftkGeometry> geometry = fromIni(ini);
    if (!geometry)
        return std::nullopt;
    GeometryFile file{*geometry, readPivot(ini, geometry->geometryId),
                      geometryFileFindings(ini, *geometry, path)};
    warnAboutGeometryFile(file.findings);
    return file;
}

} // namespace

bool checkSection(IniFile& ini, const std::string& section) {
    if (ini.sections.count(section) != 0)
        return true;
    KESTRION_LOG(Log::Error, "",
                 "AtracsysTracking: Parsing INI file, could not find section \"" << section << "\"");
    return false;
}

bool checkKey(IniFile& ini, const std::string& section, const std::string& key) {
    const auto found = ini.sections.find(section);
    if (found != ini.sections.end() && found->second.count(key) != 0)
        return true;
    KESTRION_LOG(Log::Error, "",
                 "AtracsysTracking: Parsing INI file, could not find key \"" << key << "\" in section \""
                                                                             << section << "\"");
    return false;
}

bool assignUint32(IniFile& ini, const std::string& section, const std::string& key, unsigned* out) {
    const std::string* value = findValue(ini, section, key);
    if (value == nullptr)
        return false;
    // Negative values wrap, out-of-range values saturate at the long range before truncation.
    *out = static_cast<unsigned>(std::strtol(value->c_str(), nullptr, 10));
    return true;
}

bool assignFloatXX(IniFile& ini, const std::string& section, const std::string& key, float* out) {
    const std::string* value = findValue(ini, section, key);
    if (value == nullptr)
        return false;
    *out = toSinglePrecision(std::strtod(value->c_str(), nullptr));
    return true;
}

std::optional<ftkGeometry> loadFile(std::istream& in) {
    std::string text = readText(in);
    IniFile ini;
    if (!ini.parse(text.data(), text.size()))
        return std::nullopt;
    return fromIni(ini);
}

std::optional<ftkGeometry> loadGeometry(const std::string& path) {
    std::optional<GeometryFile> file = loadGeometryFile(path);
    if (!file)
        return std::nullopt;
    return file->geometry;
}

std::optional<GeometryFile> loadGeometryFile(const std::string& path) {
    if (path.compare(0, 2, ":/") == 0) {
        QFile file(QString::fromLatin1(path.data(), static_cast<int>(path.size())));
        if (!file.open(QIODevice::ReadOnly))
            return std::nullopt;
        const QByteArray bytes = file.readAll();
        std::istringstream in(std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())));
        return fromText(readText(in), path);
    }
    std::ifstream in(path);
    if (!in.is_open())
        return std::nullopt;
    return fromText(readText(in), path);
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
