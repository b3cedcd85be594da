#pragma once

#include <ftkInterface.h>

#include <Eigen/Core>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>

namespace Kestrion::Simulator::SceneJson {

using nlohmann::json;

/// A problem at a place in the document.
struct SceneError : std::runtime_error {
    SceneError(const std::string& where, const std::string& what)
        : std::runtime_error(where.empty() ? what : where + ": " + what) {}
};

/// Place names: "devices[0].faults".
std::string at(const std::string& where, const std::string& key);
std::string at(const std::string& where, std::size_t index);

/// Readers of the scene's values; each throws SceneError naming the place when the value is not
/// what it must be.
void checkKeys(const json& object, const std::string& where, std::initializer_list<const char*> allowed);
double number(const json& value, const std::string& where);
double numberOr(const json& object, const char* key, const std::string& where, double fallback);
double positive(const json& object, const char* key, const std::string& where, double fallback);
std::uint64_t unsignedValue(const json& value, const std::string& where);
Eigen::Vector3d vector3(const json& value, const std::string& where);
Eigen::Vector3d vector3Or(const json& object, const char* key, const std::string& where,
                          const Eigen::Vector3d& v);
std::string text(const json& value, const std::string& where);
/// A status code by name ("FTK_ERR_READ") or value.
ftkError errorCode(const json& value, const std::string& where);

/// A file name of the scene, relative to the scene's folder.
std::string resolve(const std::string& baseDir, const std::string& path);

} // namespace Kestrion::Simulator::SceneJson
