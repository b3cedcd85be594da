#include "host/apps/kestrion/TrackConfiguration.h"

#include "host/stream/connection/CameraSelection.h"

#include "host/core/PropertiesXml.h"
#include "host/lib/WorkspaceConversionRegistry.h"

#include <QFile>
#include <QFileInfo>

namespace Kestrion::Cli {

const char* const TrackConfiguration::AlgorithmId = "Atracsys.SpryTrackStream";

namespace {

bool isResource(const std::string& path) {
    return path.rfind(":/", 0) == 0;
}

/// Why the file cannot be read, or "" when it can.
std::string unreadableReason(const std::string& path) {
    const QString name = QString::fromStdString(path);
    if (!isResource(path) && QFileInfo(name).isDir())
        return "is a folder";
    QFile file(name);
    if (!file.exists())
        return isResource(path) ? "no such resource in the loaded plugins" : "No such file or directory";
    if (!file.open(QIODevice::ReadOnly))
        return file.errorString().toStdString();
    return "";
}

/// The instrument name of a geometry file given on the command line: its base name.
std::string targetName(const std::string& path) {
    return QFileInfo(QString::fromStdString(path)).completeBaseName().toStdString();
}

} // namespace

std::optional<TrackConfiguration> TrackConfiguration::build(const TrackOptions& options, std::string* error) {
    auto fail = [error](const std::string& message) -> std::optional<TrackConfiguration> {
        *error = message;
        return std::nullopt;
    };
    TrackConfiguration result;
    Properties& p = result.properties;

    if (!options.workspace.empty()) {
        PropertiesXml::Error xmlError;
        std::optional<Properties> workspace = PropertiesXml::readFile(options.workspace, &xmlError);
        if (!workspace)
            return fail("workspace " + options.workspace + ": " + xmlError.message());
        std::string conversionError;
        if (!WorkspaceConversionRegistry::instance().convert(*workspace, options.workspace, &conversionError))
            return fail("workspace " + options.workspace + ": " + conversionError);
        const Properties* algorithms = workspace->subProperty("Algorithms");
        const Properties* block = algorithms ? algorithms->subProperty(AlgorithmId) : nullptr;
        if (!block)
            return fail("workspace " + options.workspace + ": no " + std::string(AlgorithmId) +
                        " algorithm in its \"Algorithms\" block");
        p = *block; // keeps the workspace's folder for relative geometry paths
    }

    Properties* targets = p.subProperty("TrackingTargets");
    const bool useExamples = options.geometries.empty() && (!targets || targets->subProperties().empty());
    const std::vector<std::string> geometries =
        useExamples ? TrackOptions::exampleGeometries() : options.geometries;
    if (!geometries.empty() && !targets) {
        targets = p.addSubProperties("TrackingTargets");
        targets->setAttribute("hidden", "true");
    }
    for (const std::string& geometry : geometries) {
        // Relative to the working directory (not to the workspace's folder).
        const std::string path =
            isResource(geometry)
                ? geometry
                : QFileInfo(QString::fromStdString(geometry)).absoluteFilePath().toStdString();
        std::string name = targetName(geometry);
        // Two files of the same base name stay two targets.
        for (int n = 2; targets->subProperty(name); ++n)
            name = targetName(geometry) + " (" + std::to_string(n) + ")";
        targets->addSubProperties(name)->setParam("Path", path);
    }
    if (targets)
        for (const Properties* target : static_cast<const Properties*>(targets)->subProperties()) {
            std::string path;
            if (!target->getParam("Path", path))
                continue;
            if (!isResource(path))
                path = target->absolutePath(path);
            const std::string reason = unreadableReason(path);
            if (!reason.empty())
                return fail("geometry file " + path + ": " + reason);
            result.targets.push_back({target->name(), path});
        }

    const int fiducialMode = options.fiducialMode.value_or(options.imagesFolder.empty() ? 0 : 3);
    if (options.fiducialMode || !p.hasParam("fiducialQueryMode") || !options.imagesFolder.empty())
        p.setParam("fiducialQueryMode", fiducialMode);
    p.setParam("queryImages", !options.imagesFolder.empty() || options.recordImages);
    if (!options.recordFile.empty()) {
        p.setParam("recordFile",
                   QFileInfo(QString::fromStdString(options.recordFile)).absoluteFilePath().toStdString());
        p.setParam("recordImages", options.recordImages);
        p.setParam("recordReplace", options.force);
    }
    if (options.integrationTimeUS)
        p.setParam("imageIntegrationTime", *options.integrationTimeUS);
    p.setParam("framePacingMs", options.pollMs);
    if (options.serialNumber)
        p.setParam("cameraSerialNumber", CameraSelection::serialText(*options.serialNumber));
    if (options.reconnect)
        p.setParam("reconnect", true);
    result.reconnect = p.param("reconnect", false);
    // The command connects and starts the stream itself, after it listens to the frames.
    for (const char* key : {"open", "autoOpen", "connect", "start", "autoStart"})
        p.removeParam(key);
    p.setParam("open", true);
    p.setParam("start", false);
    return result;
}

} // namespace Kestrion::Cli
