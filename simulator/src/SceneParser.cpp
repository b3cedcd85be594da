#include "simulator/src/SceneParser.h"

#include "simulator/src/DeviceSceneParser.h"
#include "simulator/src/GeometryIni.h"
#include "simulator/src/Random.h"
#include "simulator/src/SceneJson.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <stdexcept>

namespace Kestrion::Simulator {

namespace {

using namespace SceneJson;

// Limits of a scene (the capacities of the ground-truth record of the control interface).
constexpr std::size_t MaxMarkers = 32;
constexpr std::size_t MaxMarkerFiducials = 16;
constexpr std::size_t MaxStrays = 256;

std::vector<Motion::Sample> trajectoryFile(const std::string& path, const std::string& where) {
    std::ifstream in(path);
    if (!in) {
        throw SceneError(where, "cannot open trajectory file '" + path + "'");
    }
    std::vector<Motion::Sample> samples;
    std::string line;
    int lineNumber = 0;
    while (std::getline(in, line)) {
        ++lineNumber;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream fields(line);
        double v[7];
        for (double& x : v) {
            if (!(fields >> x)) {
                throw SceneError(where, "trajectory file '" + path + "' line " + std::to_string(lineNumber) +
                                            ": expected t,x,y,z,rxDeg,ryDeg,rzDeg");
            }
        }
        Motion::Sample s;
        s.timeS = v[0];
        s.position = Eigen::Vector3d(v[1], v[2], v[3]);
        s.rotation = Eigen::Quaterniond(Motion::rotationFromDegrees(Eigen::Vector3d(v[4], v[5], v[6])));
        samples.push_back(s);
    }
    return samples;
}

Motion motion(const json& m, const std::string& where, const std::string& baseDir) {
    checkKeys(m, where,
              {"type", "position", "rotationDeg", "center", "axis", "radiusMM", "amplitudeMM", "amplitudeDeg",
               "periodS", "phaseDeg", "samples", "file", "loop", "tip", "pivotPoint", "coneDeg"});
    Motion out;
    const std::string type = m.contains("type") ? text(m.at("type"), at(where, "type")) : "static";
    out.rotationDeg = vector3Or(m, "rotationDeg", where, Eigen::Vector3d::Zero());
    out.phaseDeg = numberOr(m, "phaseDeg", where, 0.0);
    out.amplitudeDeg = vector3Or(m, "amplitudeDeg", where, Eigen::Vector3d::Zero());
    if (type == "static") {
        out.kind = Motion::Kind::Static;
        out.position = vector3Or(m, "position", where, out.position);
    } else if (type == "orbit") {
        out.kind = Motion::Kind::Orbit;
        out.position = vector3Or(m, "center", where, out.position);
        out.axis = vector3Or(m, "axis", where, Eigen::Vector3d::UnitY());
        if (out.axis.norm() < 1e-9) {
            throw SceneError(at(where, "axis"), "must not be zero");
        }
        out.radiusMM = numberOr(m, "radiusMM", where, 100.0);
        out.periodS = positive(m, "periodS", where, 10.0);
    } else if (type == "sinusoid") {
        out.kind = Motion::Kind::Sinusoid;
        out.position = vector3Or(m, "position", where, out.position);
        out.amplitudeMM = vector3Or(m, "amplitudeMM", where, Eigen::Vector3d::Zero());
        out.periodS = positive(m, "periodS", where, 5.0);
    } else if (type == "pivot") {
        out.kind = Motion::Kind::Pivot;
        out.tip = vector3Or(m, "tip", where, Eigen::Vector3d::Zero());
        out.pivotPoint = vector3Or(m, "pivotPoint", where, out.pivotPoint);
        out.coneDeg = numberOr(m, "coneDeg", where, 20.0);
        if (out.coneDeg < 0.0 || out.coneDeg > 80.0) {
            throw SceneError(at(where, "coneDeg"), "must be between 0 and 80");
        }
        out.periodS = positive(m, "periodS", where, 5.0);
    } else if (type == "trajectory") {
        out.kind = Motion::Kind::Trajectory;
        out.loop = m.contains("loop") ? m.at("loop").get<bool>() : true;
        if (m.contains("file")) {
            out.samples =
                trajectoryFile(resolve(baseDir, text(m.at("file"), at(where, "file"))), at(where, "file"));
        } else if (m.contains("samples") && m.at("samples").is_array()) {
            const json& list = m.at("samples");
            for (std::size_t i = 0; i < list.size(); ++i) {
                const std::string w = at(at(where, "samples"), i);
                checkKeys(list[i], w, {"t", "position", "rotationDeg"});
                Motion::Sample s;
                s.timeS = number(list[i].contains("t") ? list[i].at("t") : json(), at(w, "t"));
                s.position = vector3(list[i].contains("position") ? list[i].at("position") : json(),
                                     at(w, "position"));
                s.rotation = Eigen::Quaterniond(Motion::rotationFromDegrees(
                    vector3Or(list[i], "rotationDeg", w, Eigen::Vector3d::Zero())));
                out.samples.push_back(s);
            }
        } else {
            throw SceneError(where, "a trajectory needs \"samples\" (an array) or \"file\"");
        }
        if (out.samples.empty()) {
            throw SceneError(where, "the trajectory has no samples");
        }
        for (std::size_t i = 1; i < out.samples.size(); ++i) {
            if (out.samples[i].timeS <= out.samples[i - 1].timeS) {
                throw SceneError(at(at(where, "samples"), i), "sample times must increase");
            }
        }
    } else {
        throw SceneError(at(where, "type"),
                         "unknown motion '" + type + "' (static, orbit, sinusoid, pivot, trajectory)");
    }
    return out;
}

Occlusion occlusion(const json& o, const std::string& where, std::size_t fiducialCount) {
    checkKeys(o, where, {"fromS", "toS", "fiducials", "camera"});
    Occlusion out;
    out.fromS = numberOr(o, "fromS", where, 0.0);
    out.toS = numberOr(o, "toS", where, 1e300);
    if (out.toS < out.fromS) {
        throw SceneError(at(where, "toS"), "must not be before fromS");
    }
    if (o.contains("fiducials")) {
        const json& list = o.at("fiducials");
        if (!list.is_array()) {
            throw SceneError(at(where, "fiducials"), "must be an array of fiducial indices");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::uint64_t index = unsignedValue(list[i], at(at(where, "fiducials"), i));
            if (index >= fiducialCount) {
                throw SceneError(at(at(where, "fiducials"), i),
                                 "the marker has no fiducial " + std::to_string(index));
            }
            out.fiducials.push_back(static_cast<int>(index));
        }
    }
    const std::string camera = o.contains("camera") ? text(o.at("camera"), at(where, "camera")) : "both";
    if (camera == "left") {
        out.right = false;
    } else if (camera == "right") {
        out.left = false;
    } else if (camera != "both") {
        throw SceneError(at(where, "camera"), "must be \"left\", \"right\" or \"both\"");
    }
    return out;
}

MarkerDescription marker(const json& m, const std::string& where, const std::string& baseDir,
                         std::uint64_t seed, std::size_t index) {
    checkKeys(m, where,
              {"geometryId", "fiducials", "geometryFile", "manufacturingErrorMM", "fiducialErrorsMM",
               "motion", "occlusions"});
    MarkerDescription out;
    if (m.contains("geometryFile")) {
        std::string error;
        std::uint32_t fileId = 0;
        if (!GeometryIni::load(resolve(baseDir, text(m.at("geometryFile"), at(where, "geometryFile"))),
                               fileId, out.fiducials, error)) {
            throw SceneError(at(where, "geometryFile"), error);
        }
        out.geometryId = fileId;
    }
    if (m.contains("fiducials")) {
        const json& list = m.at("fiducials");
        if (!list.is_array()) {
            throw SceneError(at(where, "fiducials"), "must be an array of [x, y, z] positions");
        }
        out.fiducials.clear();
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.fiducials.push_back(vector3(list[i], at(at(where, "fiducials"), i)));
        }
    }
    if (m.contains("geometryId")) {
        out.geometryId =
            static_cast<std::uint32_t>(unsignedValue(m.at("geometryId"), at(where, "geometryId")));
    }
    if (!m.contains("geometryId") && !m.contains("geometryFile")) {
        throw SceneError(where, "a marker needs \"geometryId\" or \"geometryFile\"");
    }
    if (out.fiducials.empty()) {
        throw SceneError(where,
                         "a marker needs \"fiducials\" or \"geometryFile\" with at least one fiducial");
    }
    if (out.fiducials.size() > MaxMarkerFiducials) {
        throw SceneError(where, "a marker has at most " + std::to_string(MaxMarkerFiducials) + " fiducials");
    }
    if (m.contains("fiducialErrorsMM")) {
        const json& list = m.at("fiducialErrorsMM");
        if (!list.is_array() || list.size() != out.fiducials.size()) {
            throw SceneError(at(where, "fiducialErrorsMM"), "must hold one [dx, dy, dz] per fiducial");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.fiducials[i] += vector3(list[i], at(at(where, "fiducialErrorsMM"), i));
        }
    }
    const double manufacturing = numberOr(m, "manufacturingErrorMM", where, 0.0);
    if (manufacturing < 0.0) {
        throw SceneError(at(where, "manufacturingErrorMM"), "must not be negative");
    }
    if (manufacturing > 0.0) {
        // Fixed for the scene: drawn once from the scene's seed and the marker's position in it.
        Random random(Random::mix(seed, 0x6d61726b00000000ull + index));
        for (Eigen::Vector3d& p : out.fiducials) {
            p += Eigen::Vector3d(random.gaussian(manufacturing), random.gaussian(manufacturing),
                                 random.gaussian(manufacturing));
        }
    }
    if (m.contains("motion")) {
        out.motion = motion(m.at("motion"), at(where, "motion"), baseDir);
    }
    if (m.contains("occlusions")) {
        const json& list = m.at("occlusions");
        if (!list.is_array()) {
            throw SceneError(at(where, "occlusions"), "must be an array");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.occlusions.push_back(
                occlusion(list[i], at(at(where, "occlusions"), i), out.fiducials.size()));
        }
    }
    return out;
}

void scene(const json& root, const std::string& baseDir, SceneDescription& out) {
    checkKeys(root, "", {"seed", "devices", "markers", "strays", "description"});
    out.seed = root.contains("seed") ? unsignedValue(root.at("seed"), "seed") : 1;
    if (root.contains("devices")) {
        const json& list = root.at("devices");
        if (!list.is_array()) {
            throw SceneError("devices", "must be an array");
        }
        std::set<std::uint64_t> serials;
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.devices.push_back(DeviceSceneParser::device(list[i], at("devices", i), i));
            if (!serials.insert(out.devices.back().serial).second) {
                throw SceneError(at(at("devices", i), "serial"), "serial used by another device");
            }
        }
    } else {
        DeviceDescription single;
        single.serial = 0x1000;
        single.model = DeviceModel::preset(ftkDeviceType::DEV_SPRYTRACK_180);
        out.devices.push_back(single);
    }
    if (root.contains("markers")) {
        const json& list = root.at("markers");
        if (!list.is_array()) {
            throw SceneError("markers", "must be an array");
        }
        if (list.size() > MaxMarkers) {
            throw SceneError("markers", "a scene has at most " + std::to_string(MaxMarkers) + " markers");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.markers.push_back(marker(list[i], at("markers", i), baseDir, out.seed, i));
        }
    }
    if (root.contains("strays")) {
        const json& list = root.at("strays");
        if (!list.is_array()) {
            throw SceneError("strays", "must be an array of [x, y, z] positions");
        }
        if (list.size() > MaxStrays) {
            throw SceneError("strays",
                             "a scene has at most " + std::to_string(MaxStrays) + " stray fiducials");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.strays.push_back(vector3(list[i], at("strays", i)));
        }
    }
}

std::string folderOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

} // namespace

bool SceneParser::parse(const std::string& jsonText, const std::string& baseDir, const std::string& source,
                        SceneDescription& result, std::string& error) {
    SceneDescription parsed;
    parsed.source = source;
    try {
        const json root = json::parse(jsonText);
        scene(root, baseDir, parsed);
    } catch (const json::parse_error& e) {
        error = "scene " + source + ": not valid JSON: " + e.what();
        return false;
    } catch (const std::exception& e) {
        error = "scene " + source + ": " + e.what();
        return false;
    }
    result = std::move(parsed);
    return true;
}

bool SceneParser::parseFile(const std::string& path, SceneDescription& result, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "scene " + path + ": cannot open the file";
        return false;
    }
    std::ostringstream content;
    content << in.rdbuf();
    return parse(content.str(), folderOf(path), path, result, error);
}

bool SceneParser::parseFault(const std::string& jsonText, FaultRule& result, std::string& error) {
    try {
        result = DeviceSceneParser::fault(json::parse(jsonText), "fault");
    } catch (const json::parse_error& e) {
        error = "fault: not valid JSON: " + std::string(e.what());
        return false;
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
    return true;
}

} // namespace Kestrion::Simulator
