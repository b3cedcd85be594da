#include "atracsys/plugin/AtracsysGeometryCheckAlgorithm.h"

#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "atracsys/geometry-checks/AtracsysAmbiguityCheck.h"
#include "atracsys/stream/AtracsysInstrumentId.h"

#include "host/core/CaptureLogSink.h"
#include "host/core/Log.h"

#include <map>
#include <memory>
#include <optional>

namespace Kestrion::SpryTrack {

namespace {

AmbiguityGeometry toChecked(const std::string& path, const ftkGeometry& geometry) {
    AmbiguityGeometry result{path, {}};
    for (std::uint32_t i = 0; i < geometry.pointsCount && i < FTK_MAX_FIDUCIALS; ++i)
        result.points.emplace_back(geometry.positions[i].x, geometry.positions[i].y, geometry.positions[i].z);
    return result;
}

/// Loads a file with the plugin's loader; when it does not load, *reason is the first error the
/// loader gave for it, in its words (for the user; nothing is decided on it).
std::optional<AtracsysHelpers::GeometryFile> load(const std::string& path, std::string* reason) {
    const auto lines = std::make_shared<CaptureLogSink>();
    Log::addSink(lines);
    std::optional<AtracsysHelpers::GeometryFile> file = AtracsysHelpers::loadGeometryFile(path);
    Log::removeSink(lines);
    if (!file)
        for (const LogRecord& record : lines->records())
            if (record.level >= Log::Error && reason->empty())
                *reason = record.message;
    return file;
}

} // namespace

void AtracsysGeometryCheckAlgorithm::configure(const Properties* properties) {
    Algorithm::configure(properties);
    if (!properties)
        return;
    m_toleranceMM = properties->param("Distance matching tolerance", static_cast<float>(m_toleranceMM));
    m_paths.clear();
    if (const Properties* files = properties->subProperty("Files"))
        for (const Properties* file : files->subProperties())
            m_paths.push_back(file->param("Path", std::string()));
}

void AtracsysGeometryCheckAlgorithm::configuration(Properties* properties) const {
    Algorithm::configuration(properties);
    if (!properties)
        return;
    properties->setParam("Distance matching tolerance", static_cast<float>(m_toleranceMM));
    properties->removeSubProperties("Files");
    Properties* files = properties->addSubProperties("Files");
    for (std::size_t i = 0; i < m_paths.size(); ++i)
        files->addSubProperties("file" + std::to_string(i))->setParam("Path", m_paths[i]);
    properties->removeSubProperties("Findings");
    Properties* findings = properties->addSubProperties("Findings");
    for (std::size_t i = 0; i < m_findings.size(); ++i) {
        Properties* entry = findings->addSubProperties("finding" + std::to_string(i));
        entry->setParam("File", static_cast<int>(m_findings[i].file));
        entry->setParam("Kind", m_findings[i].kind);
        entry->setParam("Text", m_findings[i].text);
        entry->setParam("Refused", m_findings[i].refused);
        if (m_findings[i].kind == "duplicate")
            entry->setParam("Other", static_cast<int>(m_findings[i].other));
    }
}

void AtracsysGeometryCheckAlgorithm::compute() {
    m_findings.clear();
    const AtracsysAmbiguityCheck check(m_toleranceMM);
    std::vector<AmbiguityGeometry> earlier;       // the files that loaded, as the stream would hold them
    std::map<std::uint32_t, std::size_t> holders; // geometry id -> the file that has it
    for (std::size_t i = 0; i < m_paths.size(); ++i) {
        std::string reason;
        const std::optional<AtracsysHelpers::GeometryFile> file = load(m_paths[i], &reason);
        if (!file) {
            m_findings.push_back({i, "unloadable", reason, true, 0});
            continue;
        }
        for (const auto& finding : file->findings)
            m_findings.push_back({i, "file", finding.text, finding.refusedByCamera, 0});
        const auto [holder, added] = holders.emplace(file->geometry.geometryId, i);
        if (!added) {
            // The words of the stream that refuses it.
            m_findings.push_back({i, "duplicate",
                                  "its instrument id " +
                                      createId(static_cast<int>(file->geometry.geometryId)) +
                                      " is that of the geometry loaded from " + m_paths[holder->second],
                                  true, holder->second});
            continue;
        }
        const AmbiguityGeometry checked = toChecked(m_paths[i], file->geometry);
        for (const AmbiguityFinding& finding : check.check(checked, earlier))
            m_findings.push_back({i, "ambiguity", finding.text, false, 0});
        earlier.push_back(checked);
    }
    setStatus(Success);
}

} // namespace Kestrion::SpryTrack
