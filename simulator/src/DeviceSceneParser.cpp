#include "simulator/src/DeviceSceneParser.h"

#include "simulator/src/OptionCatalog.h"
#include "simulator/src/SceneJson.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Kestrion::Simulator {

using namespace SceneJson;

namespace {

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

} // namespace

FaultRule DeviceSceneParser::fault(const json& f, const std::string& where) {
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

DeviceDescription DeviceSceneParser::device(const json& d, const std::string& where, std::size_t index) {
    checkKeys(d, where,
              {"model", "serial", "rateHz", "width", "height", "baselineMM", "focalPx", "convergenceMM",
               "pixelNoise", "fiducialDiameterMM", "minDepthMM", "maxDepthMM", "clockDriftPPM",
               "deliveryJitterMS", "options", "extraOptions", "faults"});
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
    m.clockDriftPPM = numberOr(d, "clockDriftPPM", where, m.clockDriftPPM);
    if (std::abs(m.clockDriftPPM) > 1000.0) {
        throw SceneError(at(where, "clockDriftPPM"), "must be between -1000 and 1000");
    }
    m.deliveryJitterMS = numberOr(d, "deliveryJitterMS", where, m.deliveryJitterMS);
    if (m.deliveryJitterMS < 0.0 || m.deliveryJitterMS > 100.0) {
        throw SceneError(at(where, "deliveryJitterMS"), "must be between 0 and 100");
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

} // namespace Kestrion::Simulator
