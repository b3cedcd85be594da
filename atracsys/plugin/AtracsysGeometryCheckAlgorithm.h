#pragma once

#include "host/core/Algorithm.h"
#include "host/core/Properties.h"

#include <string>
#include <vector>

namespace Kestrion::SpryTrack {

/// Checks marker geometry files as tracking would take them, without a camera
/// ("Atracsys.GeometryCheck"): each file is loaded by the plugin's own loader and compared with
/// itself and with the files before it, as the camera stream does when it adds a geometry. The
/// findings are data for the host, in the words tracking uses:
///
/// - input: "Distance matching tolerance" (mm) and a block "Files" whose children each hold a
///   "Path";
/// - output, after compute(), in configuration(): a block "Findings" with one child per finding,
///   in the files' order: "File" (index of the file in "Files"), "Kind" (`unloadable`: the file
///   does not load; `duplicate`: its geometry id is that of the earlier file "Other"; `file`: a
///   problem of the file itself; `ambiguity`: the camera could confuse it), "Text" (the words,
///   naming the files by their paths; for `unloadable`, the loader's first error, if any) and
///   "Refused" (the camera would refuse the geometry).
class AtracsysGeometryCheckAlgorithm : public Algorithm {
public:
    struct Finding {
        std::size_t file = 0;
        std::string kind;
        std::string text;
        bool refused = false;
        std::size_t other = 0;
    };

    void configure(const Properties* properties) override;
    void configuration(Properties* properties) const override;
    void compute() override;

    const std::vector<Finding>& findings() const { return m_findings; }

private:
    double m_toleranceMM = 1.0;
    std::vector<std::string> m_paths;
    std::vector<Finding> m_findings;
};

} // namespace Kestrion::SpryTrack
