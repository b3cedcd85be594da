#include "simulator/src/GeometryIni.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

namespace Kestrion::Simulator {

namespace {

using Sections = std::map<std::string, std::map<std::string, std::string>>;

Sections readSections(const std::string& text) {
    Sections sections;
    std::string current;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        std::string clean;
        for (char c : line) {
            if (c != '\r') {
                clean += c;
            }
        }
        if (clean.empty() || clean[0] == ';') {
            continue;
        }
        if (clean.front() == '[' && clean.back() == ']') {
            current = clean.substr(1, clean.size() - 2);
            sections[current];
            continue;
        }
        const auto eq = clean.find('=');
        if (eq != std::string::npos) {
            sections[current][clean.substr(0, eq)] = clean.substr(eq + 1);
        }
    }
    return sections;
}

bool number(const Sections& sections, const std::string& section, const std::string& key, double& out,
            std::string& error) {
    const auto s = sections.find(section);
    if (s == sections.end()) {
        error = "missing section [" + section + "]";
        return false;
    }
    const auto k = s->second.find(key);
    if (k == s->second.end()) {
        error = "missing key '" + key + "' in section [" + section + "]";
        return false;
    }
    const char* begin = k->second.c_str();
    char* end = nullptr;
    out = std::strtod(begin, &end);
    if (end == begin || *end != '\0') {
        error = "value '" + k->second + "' of key '" + key + "' in section [" + section + "] is not a number";
        return false;
    }
    return true;
}

} // namespace

bool GeometryIni::parse(const std::string& text, std::uint32_t& id, std::vector<Eigen::Vector3d>& points,
                        std::string& error) {
    const Sections sections = readSections(text);
    double count = 0.0;
    double idValue = 0.0;
    if (!number(sections, "geometry", "count", count, error) ||
        !number(sections, "geometry", "id", idValue, error)) {
        return false;
    }
    if (count < 0.0 || count > 64.0 || count != static_cast<int>(count)) {
        error = "count " + std::to_string(count) + " is not a small whole number";
        return false;
    }
    id = static_cast<std::uint32_t>(idValue);
    points.clear();
    for (int i = 0; i < static_cast<int>(count); ++i) {
        const std::string section = "fiducial" + std::to_string(i);
        Eigen::Vector3d p;
        if (!number(sections, section, "x", p.x(), error) || !number(sections, section, "y", p.y(), error) ||
            !number(sections, section, "z", p.z(), error)) {
            return false;
        }
        points.push_back(p);
    }
    return true;
}

bool GeometryIni::load(const std::string& path, std::uint32_t& id, std::vector<Eigen::Vector3d>& points,
                       std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot open geometry file '" + path + "'";
        return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (!parse(text.str(), id, points, error)) {
        error = "geometry file '" + path + "': " + error;
        return false;
    }
    return true;
}

} // namespace Kestrion::Simulator
