#pragma once

#include "host/calibration/ToolTipFileFormat.h"

#include <map>
#include <string>

namespace Kestrion::TestSupport {

/// A tool-tip file format for host tests without the plugin: it claims names with the given
/// ending, answers each known path with its facts, reports every other path as unreadable, and
/// keeps the tips it is asked to save.
class ScriptedToolTipFileFormat : public ToolTipFileFormat {
public:
    explicit ScriptedToolTipFileFormat(std::string ending)
        : m_ending(std::move(ending)) {}

    mutable std::map<std::string, Facts> files; // saveTip changes them, as a file would change

    bool claims(const std::string& path) const override {
        return path.size() >= m_ending.size() &&
               path.compare(path.size() - m_ending.size(), m_ending.size(), m_ending) == 0;
    }
    std::optional<Facts> read(const std::string& path, std::string& error) const override {
        const auto found = files.find(path);
        if (found == files.end()) {
            error = "cannot read geometry file " + path + ": no such file";
            return std::nullopt;
        }
        return found->second;
    }
    bool saveTip(const std::string& path, const Eigen::Vector3d& tip, std::string& error) const override {
        const auto found = files.find(path);
        if (found == files.end()) {
            error = "cannot read " + path;
            return false;
        }
        found->second.tip = tip;
        return true;
    }

private:
    std::string m_ending;
};

} // namespace Kestrion::TestSupport
