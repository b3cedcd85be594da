#include "simulator/src/SceneParser.h"

#include "simulator/src/ErrorCodes.h"
#include "simulator/src/GeometryIni.h"
#include "simulator/src/OptionCatalog.h"
#include "simulator/src/Random.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <stdexcept>

namespace Kestrion::Simulator {

namespace {

using nlohmann::json;

// Limits of a scene (the capacities of the ground-truth record of the control interface).
constexpr std::size_t MaxMarkers = 32;
constexpr std::size_t MaxMarkerFiducials = 16;
constexpr std::size_t MaxStrays = 256;

/// A problem at a place in the document.
struct SceneError : std::runtime_error {
    SceneError(const std::string& where, const std::string& what)
        : std::runtime_error(where.empty() ? what : where + ": " + what) {}
};

std::string at(const std::string& where, const std::string& key) {
    return where.empty() ? key : where + "." + key;
}

std::string at(const std::string& where, std::size_t index) {
    return where + "[" + std::to_string(index) + "]";
}

void checkKeys(const json& object, const std::string& where, std::initializer_list<const char*> allowed) {
    if (!object.is_object()) {
        throw SceneError(where, "must be an object");
    }
    for (auto it = object.begin(); it != object.end(); ++it) {
        const bool known =
            std::any_of(allowed.begin(), allowed.end(), [&](const char* k) { return it.key() == k; });
        if (!known) {
            throw SceneError(at(where, it.key()), "unknown key");
        }
    }
}

double number(const json& value, const std::string& where) {
    if (!value.is_number()) {
        throw SceneError(where, "must be a number");
    }
    return value.get<double>();
}

double numberOr(const json& object, const char* key, const std::string& where, double fallback) {
    return object.contains(key) ? number(object.at(key), at(where, key)) : fallback;
}

double positive(const json& object, const char* key, const std::string& where, double fallback) {
    const double v = numberOr(object, key, where, fallback);
    if (!(v > 0.0)) {
        throw SceneError(at(where, key), "must be positive");
    }
    return v;
}

std::uint64_t unsignedValue(const json& value, const std::string& where) {
    if (value.is_number_unsigned()) {
        return value.get<std::uint64_t>();
    }
    if (value.is_number_integer() && value.get<long long>() >= 0) {
        return static_cast<std::uint64_t>(value.get<long long>());
    }
    if (value.is_string()) {
        const std::string text = value.get<std::string>();
        std::size_t used = 0;
        try {
            const std::uint64_t v = std::stoull(text, &used, 0);
            if (used == text.size()) {
                return v;
            }
        } catch (const std::exception&) {
        }
    }
    throw SceneError(where, "must be a non-negative integer (a number or a string such as \"0x1A2B\")");
}

Eigen::Vector3d vector3(const json& value, const std::string& where) {
    if (!value.is_array() || value.size() != 3) {
        throw SceneError(where, "must be an array of three numbers");
    }
    return Eigen::Vector3d(number(value[0], at(where, 0)), number(value[1], at(where, 1)),
                           number(value[2], at(where, 2)));
}

Eigen::Vector3d vector3Or(const json& object, const char* key, const std::string& where,
                          const Eigen::Vector3d& v) {
    return object.contains(key) ? vector3(object.at(key), at(where, key)) : v;
}

std::string text(const json& value, const std::string& where) {
    if (!value.is_string()) {
        throw SceneError(where, "must be a string");
    }
    return value.get<std::string>();
}

std::string resolve(const std::string& baseDir, const std::string& path) {
    if (path.empty() || path.front() == '/' || baseDir.empty()) {
        return path;
    }
    return baseDir + "/" + path;
}

ftkError errorCode(const json& value, const std::string& where) {
    if (value.is_string()) {
        if (auto code = ErrorCodes::fromName(value.get<std::string>())) {
            return *code;
        }
        throw SceneError(where, "unknown status name '" + value.get<std::string>() + "'");
    }
    if (value.is_number_integer()) {
        if (auto code = ErrorCodes::fromValue(value.get<long long>())) {
            return *code;
        }
        throw SceneError(where, "unknown status value " + std::to_string(value.get<long long>()));
    }
    throw SceneError(where, "must be a status name such as \"FTK_ERR_INTERNAL\" or its number");
}

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
               "periodS", "phaseDeg", "samples", "file", "loop"});
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
                         "unknown motion '" + type + "' (static, orbit, sinusoid, trajectory)");
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

FaultRule fault(const json& f, const std::string& where) {
    checkKeys(f, where,
              {"kind", "atFetch", "atTimeS", "durationS", "count", "code", "reportDevices", "option",
               "operation", "getter", "malformation", "geometryId"});
    FaultRule out;
    const std::string kind = text(f.contains("kind") ? f.at("kind") : json(), at(where, "kind"));
    if (kind == "fetchError") {
        out.kind = FaultRule::Kind::FetchError;
    } else if (kind == "internalError") {
        out.kind = FaultRule::Kind::FetchError;
        out.code = ftkError::FTK_ERR_INTERNAL;
    } else if (kind == "disconnection") {
        out.kind = FaultRule::Kind::Disconnection;
    } else if (kind == "markerOverflow") {
        out.kind = FaultRule::Kind::MarkersStatus;
        out.markersStatus = ftkQueryStatus::QS_ERR_OVERFLOW;
    } else if (kind == "invalidReservedSize") {
        out.kind = FaultRule::Kind::MarkersStatus;
        out.markersStatus = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    } else if (kind == "skipped") {
        out.kind = FaultRule::Kind::MarkersStatus;
        out.markersStatus = ftkQueryStatus::QS_WAR_SKIPPED;
    } else if (kind == "noDevice") {
        out.kind = FaultRule::Kind::NoDevice;
    } else if (kind == "enumerationStatus") {
        out.kind = FaultRule::Kind::EnumerationStatus;
    } else if (kind == "optionEnumerationStatus") {
        out.kind = FaultRule::Kind::OptionEnumerationStatus;
    } else if (kind == "optionRefusal") {
        out.kind = FaultRule::Kind::OptionRefusal;
    } else if (kind == "geometryRefusal") {
        out.kind = FaultRule::Kind::GeometryRefusal;
    } else if (kind == "malformedOption") {
        out.kind = FaultRule::Kind::MalformedOption;
    } else {
        throw SceneError(at(where, "kind"), "unknown fault '" + kind + "'");
    }

    if (f.contains("atFetch")) {
        out.atFetch = unsignedValue(f.at("atFetch"), at(where, "atFetch"));
    }
    if (f.contains("atTimeS")) {
        out.atTimeS = number(f.at("atTimeS"), at(where, "atTimeS"));
    }
    if (f.contains("durationS")) {
        if (!out.atTimeS) {
            throw SceneError(at(where, "durationS"), "needs atTimeS");
        }
        out.durationS = number(f.at("durationS"), at(where, "durationS"));
    }
    if (f.contains("count")) {
        if (!f.at("count").is_number_integer()) {
            throw SceneError(at(where, "count"), "must be an integer (negative: unlimited)");
        }
        out.count = f.at("count").get<std::int64_t>();
    }

    // Defaults that depend on the kind, then the explicit code.
    const std::string operation =
        f.contains("operation") ? text(f.at("operation"), at(where, "operation")) : "";
    if (out.kind == FaultRule::Kind::OptionRefusal) {
        if (operation.empty() || operation == "set") {
            out.operation = FaultRule::Operation::Set;
            out.code = ftkError::FTK_ERR_WRITE;
        } else if (operation == "get") {
            out.operation = FaultRule::Operation::Get;
            out.code = ftkError::FTK_ERR_READ;
        } else if (operation == "both") {
            out.operation = FaultRule::Operation::Both;
            out.code = ftkError::FTK_ERR_INV_OPT_ACC;
        } else {
            throw SceneError(at(where, "operation"), "must be \"get\", \"set\" or \"both\"");
        }
    } else if (out.kind == FaultRule::Kind::GeometryRefusal) {
        if (operation.empty() || operation == "set") {
            out.code = ftkError::FTK_ERR_GEOM_PTS;
        } else if (operation == "clear") {
            out.onClear = true;
            out.code = ftkError::FTK_ERR_INTERNAL;
        } else {
            throw SceneError(at(where, "operation"), "must be \"set\" or \"clear\"");
        }
    } else if (!operation.empty()) {
        throw SceneError(at(where, "operation"), "applies only to optionRefusal and geometryRefusal");
    }
    if (f.contains("getter")) {
        if (out.kind != FaultRule::Kind::OptionRefusal || out.operation == FaultRule::Operation::Set) {
            throw SceneError(at(where, "getter"), "applies only to an optionRefusal of reads");
        }
        const std::string getter = text(f.at("getter"), at(where, "getter"));
        const char* const names[] = {"min", "max", "default", "value"}; // in ftkOptionGetter order
        const auto found = std::find(std::begin(names), std::end(names), getter);
        if (found == std::end(names)) {
            throw SceneError(at(where, "getter"), "must be \"min\", \"max\", \"default\" or \"value\"");
        }
        out.getter = static_cast<ftkOptionGetter>(found - std::begin(names));
    }
    if (out.kind == FaultRule::Kind::EnumerationStatus ||
        out.kind == FaultRule::Kind::OptionEnumerationStatus) {
        out.code = ftkError::FTK_ERR_INTERNAL;
    }
    if (f.contains("code")) {
        if (kind == "internalError" || out.kind == FaultRule::Kind::MarkersStatus ||
            out.kind == FaultRule::Kind::Disconnection || out.kind == FaultRule::Kind::NoDevice ||
            out.kind == FaultRule::Kind::MalformedOption) {
            throw SceneError(at(where, "code"), "does not apply to a " + kind + " fault");
        }
        out.code = errorCode(f.at("code"), at(where, "code"));
    } else if (out.kind == FaultRule::Kind::FetchError && kind == "fetchError") {
        throw SceneError(where, "a fetchError fault needs \"code\"");
    }
    if (f.contains("reportDevices")) {
        out.reportDevices = f.at("reportDevices").get<bool>();
    }
    if (f.contains("option")) {
        const json& o = f.at("option");
        if (o.is_string()) {
            out.optionName = o.get<std::string>();
        } else {
            out.optionId = static_cast<std::uint32_t>(unsignedValue(o, at(where, "option")));
        }
    }
    if (out.kind == FaultRule::Kind::MalformedOption) {
        if (!f.contains("option")) {
            throw SceneError(where, "a malformedOption fault needs \"option\" (name or id)");
        }
        const std::string m =
            f.contains("malformation") ? text(f.at("malformation"), at(where, "malformation")) : "";
        if (m == "nullName") {
            out.malformation = FaultRule::Malformation::NullName;
        } else if (m == "unknownType") {
            out.malformation = FaultRule::Malformation::UnknownType;
        } else if (m == "duplicateName") {
            out.malformation = FaultRule::Malformation::DuplicateName;
        } else if (m == "nullDescription") {
            out.malformation = FaultRule::Malformation::NullDescription;
        } else if (m == "nullUnit") {
            out.malformation = FaultRule::Malformation::NullUnit;
        } else {
            throw SceneError(at(where, "malformation"),
                             "must be \"nullName\", \"unknownType\", "
                             "\"duplicateName\", \"nullDescription\" or \"nullUnit\"");
        }
    }
    if (f.contains("geometryId")) {
        out.geometryId =
            static_cast<std::uint32_t>(unsignedValue(f.at("geometryId"), at(where, "geometryId")));
    }
    return out;
}

OptionSetting optionSetting(const std::string& key, const json& value, const std::string& where) {
    OptionSetting out;
    std::size_t used = 0;
    bool numericKey =
        !key.empty() && std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (numericKey) {
        out.id = static_cast<std::uint32_t>(std::stoul(key, &used));
    } else {
        out.name = key;
    }
    if (value.is_number()) {
        out.number = value.get<double>();
    } else if (value.is_string()) {
        out.isText = true;
        out.text = value.get<std::string>();
    } else if (value.is_boolean()) {
        out.number = value.get<bool>() ? 1.0 : 0.0;
    } else {
        throw SceneError(where, "must be a number or a string");
    }
    return out;
}

/// An option a scene adds to a device, such as one of another firmware: its id must be free.
OptionDefinition extraOption(const json& o, const std::string& where, const OptionTable& offered) {
    checkKeys(o, where,
              {"id", "name", "type", "min", "max", "default", "unit", "description", "read", "write"});
    OptionDefinition out;
    out.id =
        static_cast<std::uint32_t>(unsignedValue(o.contains("id") ? o.at("id") : json(), at(where, "id")));
    if (offered.find(out.id) != nullptr) {
        throw SceneError(at(where, "id"), "the device already has an option " + std::to_string(out.id));
    }
    out.name = text(o.contains("name") ? o.at("name") : json(), at(where, "name"));
    out.unit = o.contains("unit") ? text(o.at("unit"), at(where, "unit")) : "";
    out.description = o.contains("description") ? text(o.at("description"), at(where, "description")) : "";
    for (const char* key : {"read", "write"}) {
        if (o.contains(key) && !o.at(key).is_boolean()) {
            throw SceneError(at(where, key), "must be true or false");
        }
    }
    out.read = o.value("read", true);
    out.write = o.value("write", true);
    const std::string type = o.contains("type") ? text(o.at("type"), at(where, "type")) : "int";
    if (type == "data") {
        out.type = ftkOptionType::FTK_DATA;
        out.defaultData = o.contains("default") ? text(o.at("default"), at(where, "default")) : "";
        if (out.defaultData.size() > BUFFER_MAX_SIZE) {
            throw SceneError(at(where, "default"),
                             "longer than " + std::to_string(BUFFER_MAX_SIZE) + " bytes");
        }
        return out;
    }
    if (type != "int" && type != "float") {
        throw SceneError(at(where, "type"), "must be \"int\", \"float\" or \"data\"");
    }
    const double min = numberOr(o, "min", where, 0.0);
    const double max = numberOr(o, "max", where, 0.0);
    const double def = numberOr(o, "default", where, min);
    if (!(min <= def && def <= max)) {
        throw SceneError(where, "needs min <= default <= max");
    }
    if (type == "float") {
        out.type = ftkOptionType::FTK_FLOAT32;
        out.minFloat = static_cast<float>(min);
        out.maxFloat = static_cast<float>(max);
        out.defaultFloat = static_cast<float>(def);
        return out;
    }
    for (const double v : {min, max, def}) {
        if (v != std::floor(v) || v < std::numeric_limits<std::int32_t>::min() ||
            v > std::numeric_limits<std::int32_t>::max()) {
            throw SceneError(where, "the bounds and default of an int option must be 32-bit whole numbers");
        }
    }
    out.type = ftkOptionType::FTK_INT32;
    out.minInt = static_cast<std::int32_t>(min);
    out.maxInt = static_cast<std::int32_t>(max);
    out.defaultInt = static_cast<std::int32_t>(def);
    return out;
}

DeviceDescription device(const json& d, const std::string& where, std::size_t index) {
    checkKeys(d, where,
              {"model", "serial", "rateHz", "width", "height", "baselineMM", "focalPx", "convergenceMM",
               "pixelNoise", "fiducialDiameterMM", "minDepthMM", "maxDepthMM", "options", "extraOptions",
               "faults"});
    DeviceDescription out;
    const std::string model = d.contains("model") ? text(d.at("model"), at(where, "model")) : "spryTrack 180";
    const auto type = DeviceModel::typeFromName(model);
    if (!type) {
        throw SceneError(at(where, "model"), "unknown model '" + model +
                                                 "' (spryTrack 180, spryTrack 300, fusionTrack 250, "
                                                 "fusionTrack 500, simulator)");
    }
    DeviceModel& m = out.model;
    m = DeviceModel::preset(*type);
    out.serial = d.contains("serial") ? unsignedValue(d.at("serial"), at(where, "serial")) : 0x1000 + index;
    if (out.serial == 0) {
        throw SceneError(at(where, "serial"), "0 is the serial of the global options, not of a device");
    }
    m.rateHz = positive(d, "rateHz", where, m.rateHz);
    m.width = static_cast<int>(positive(d, "width", where, m.width));
    m.height = static_cast<int>(positive(d, "height", where, m.height));
    if (m.width > 8192 || m.height > 8192) {
        throw SceneError(where, "image sizes above 8192 pixels are not supported");
    }
    m.baselineMM = positive(d, "baselineMM", where, m.baselineMM);
    m.focalPx = positive(d, "focalPx", where, m.focalPx);
    m.convergenceMM = numberOr(d, "convergenceMM", where, m.convergenceMM);
    m.pixelNoise = numberOr(d, "pixelNoise", where, m.pixelNoise);
    if (m.pixelNoise < 0.0) {
        throw SceneError(at(where, "pixelNoise"), "must not be negative");
    }
    m.fiducialDiameterMM = positive(d, "fiducialDiameterMM", where, m.fiducialDiameterMM);
    m.minDepthMM = positive(d, "minDepthMM", where, m.minDepthMM);
    m.maxDepthMM = positive(d, "maxDepthMM", where, m.maxDepthMM);
    if (m.maxDepthMM <= m.minDepthMM) {
        throw SceneError(at(where, "maxDepthMM"), "must be greater than minDepthMM");
    }
    if (d.contains("extraOptions")) {
        const json& list = d.at("extraOptions");
        if (!list.is_array()) {
            throw SceneError(at(where, "extraOptions"), "must be an array");
        }
        OptionTable offered = OptionCatalog::deviceOptions(m);
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.extraOptions.push_back(extraOption(list[i], at(at(where, "extraOptions"), i), offered));
            offered.add(out.extraOptions.back());
        }
    }
    if (d.contains("options")) {
        const json& options = d.at("options");
        if (!options.is_object()) {
            throw SceneError(at(where, "options"), "must be an object of option names (or ids) and values");
        }
        for (auto it = options.begin(); it != options.end(); ++it) {
            out.options.push_back(optionSetting(it.key(), it.value(), at(at(where, "options"), it.key())));
        }
    }
    if (d.contains("faults")) {
        const json& list = d.at("faults");
        if (!list.is_array()) {
            throw SceneError(at(where, "faults"), "must be an array");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            out.faults.push_back(fault(list[i], at(at(where, "faults"), i)));
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
            out.devices.push_back(device(list[i], at("devices", i), i));
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
        result = fault(json::parse(jsonText), "fault");
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
