#include "atracsys/calibration/AtracsysPivotFile.h"

#include "host/core/File.h"

#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace Kestrion {

namespace {

// The section a line opens, by the geometry reader's rule: a line holding "[" and "]" is a
// header naming what lies between the first "[" and the last "]".
std::optional<std::string> sectionOf(const std::string& line) {
    const auto open = line.find('[');
    const auto close = line.rfind(']');
    if (open == std::string::npos || close == std::string::npos)
        return std::nullopt;
    return close > open ? line.substr(open + 1, close - open - 1) : line.substr(open + 1);
}

} // namespace

std::string AtracsysPivotFile::withPivot(const std::string& text, const Eigen::Vector3d& tip) {
    const std::string eol = text.find("\r\n") != std::string::npos ? "\r\n" : "\n";
    std::string result;
    bool inPivot = false;
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t end = text.find('\n', begin);
        end = end == std::string::npos ? text.size() : end + 1;
        const std::string line = text.substr(begin, end - begin);
        if (const auto section = sectionOf(line))
            inPivot = *section == "pivot";
        if (!inPivot)
            result += line;
        begin = end;
    }
    if (!result.empty() && result.back() != '\n')
        result += eol;
    std::ostringstream pivot;
    pivot << std::fixed << std::setprecision(3) << "[pivot]" << eol << "x=" << tip.x() << eol
          << "y=" << tip.y() << eol << "z=" << tip.z() << eol;
    return result + pivot.str();
}

bool AtracsysPivotFile::save(const std::string& path, const Eigen::Vector3d& tip, std::string& error) {
    std::string reason;
    const std::optional<std::string> text = Filesystem::File::readText(Filesystem::Path(path), &reason);
    if (!text) {
        error = "cannot read " + path + ": " + reason;
        return false;
    }
    bool geometry = false;
    std::istringstream lines(*text);
    for (std::string line; std::getline(lines, line);)
        geometry = geometry || sectionOf(line) == std::optional<std::string>("geometry");
    if (!geometry) {
        error = path + " is not a marker geometry file (it has no [geometry] section)";
        return false;
    }
    return writeWithPivot(path, *text, tip, error);
}

bool AtracsysPivotFile::writeWithPivot(const std::string& path, const std::string& text,
                                       const Eigen::Vector3d& tip, std::string& error) {
    // No write permission for anyone, or none for this process: the file stays as it is (a
    // process that may write the folder could otherwise rename over it, even run as root).
    struct stat info;
    if (::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
        ((info.st_mode & 0222) == 0 || ::access(path.c_str(), W_OK) != 0)) {
        error = "cannot write " + path + ": the file is read-only";
        return false;
    }
    std::string reason;
    if (!Filesystem::File::writeText(Filesystem::Path(path), withPivot(text, tip), &reason)) {
        error = "cannot write " + path + ": " + reason;
        return false;
    }
    return true;
}

std::optional<Eigen::Vector3d> AtracsysPivotFile::pivotOf(const std::string& text) {
    Eigen::Vector3d tip = Eigen::Vector3d::Constant(std::nan(""));
    bool inPivot = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (const auto section = sectionOf(line)) {
            inPivot = *section == "pivot";
            continue;
        }
        const auto equals = line.find('=');
        const std::string key = equals == std::string::npos ? std::string() : line.substr(0, equals);
        if (!inPivot || (key != "x" && key != "y" && key != "z"))
            continue;
        const char* begin = line.c_str() + equals + 1;
        char* end = nullptr;
        const double value = std::strtod(begin, &end);
        while (*end == ' ' || *end == '\t')
            ++end;
        tip[key[0] - 'x'] = end == begin || *end != '\0' ? std::nan("") : value; // the last value counts
    }
    if (!tip.allFinite())
        return std::nullopt;
    return tip;
}

std::optional<unsigned> AtracsysPivotFile::fiducialCount(const std::string& text) {
    std::optional<unsigned> count;
    bool inGeometry = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (const auto section = sectionOf(line)) {
            inGeometry = *section == "geometry";
            continue;
        }
        if (!inGeometry || line.rfind("count=", 0) != 0)
            continue;
        const std::string value = line.substr(6);
        if (value.empty() || value.size() > 9 || value.find_first_not_of("0123456789") != std::string::npos)
            count.reset();
        else
            count = static_cast<unsigned>(std::stoul(value)); // a repeated key keeps its last value
    }
    return count;
}

} // namespace Kestrion
