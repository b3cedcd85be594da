#include "simulator/src/SceneJson.h"

#include "simulator/src/ErrorCodes.h"

#include <algorithm>

namespace Kestrion::Simulator::SceneJson {

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

} // namespace Kestrion::Simulator::SceneJson
