#include "atracsys/gui/AtracsysToolTipSaver.h"

#include "atracsys/calibration/AtracsysPivotFile.h"
#include "atracsys/gui/AtracsysPivotCalibrationPanel.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"

#include "host/core/Log.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/QtHelpers.h"

#include <QFile>
#include <QFileInfo>
#include <QWidget>

namespace Kestrion {

namespace {

constexpr const char* Category = "AtracsysMarkersWidget";

AtracsysToolTipSaver::Outcome failed(const std::string& instrumentId, const std::string& file,
                                     const std::string& error) {
    KESTRION_LOG_ERROR(Category, "The tool tip of " << instrumentId << " was not saved: " << error);
    return {AtracsysToolTipSaver::Outcome::Kind::Failed, file, error};
}

} // namespace

AtracsysToolTipSaver::Outcome AtracsysToolTipSaver::save(AtracsysTrackingStreamBase& stream,
                                                         const std::string& instrumentId,
                                                         const Eigen::Vector3d& tip,
                                                         const std::string& proposedFolder) {
    std::string name; // the instrument's entry in the stream's targets, kept on reloading
    for (const TrackingInstrument& instrument : stream.instruments())
        if (instrument.ID() == instrumentId)
            name = instrument.id.name;
    if (name.empty())
        return failed(instrumentId, "", "the tool " + instrumentId + " is no longer loaded");
    const std::string source = AtracsysPivotCalibrationPanel::geometryPath(stream, instrumentId);
    if (source.empty())
        return failed(instrumentId, "", "the geometry file of " + instrumentId + " is not known");

    std::string target = source;
    std::string error;
    if (source.compare(0, 2, ":/") == 0) {
        // Compiled in, so not writable: a copy with the tip, where the user says.
        QFile resource(QString::fromStdString(source));
        if (!resource.open(QIODevice::ReadOnly))
            return failed(instrumentId, source,
                          "cannot read " + source + ": " + resource.errorString().toStdString());
        const QByteArray bytes = resource.readAll();
        const std::string fileName = QFileInfo(resource).fileName().toStdString();
        target =
            QtHelpers::getSaveFilename("Save a copy of the tool's geometry with its tip", "ini",
                                       proposedFolder.empty() ? fileName : proposedFolder + "/" + fileName);
        if (target.empty())
            return {Outcome::Kind::Cancelled, "", ""};
        if (!AtracsysPivotFile::writeWithPivot(
                target, std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())), tip, error))
            return failed(instrumentId, target, error);
    } else if (!AtracsysPivotFile::save(source, tip, error)) {
        return failed(instrumentId, source, error);
    }
    KESTRION_LOG_INFO(Category, "the tool tip has been written to " << target);

    // Loaded again from the file now holding the tip: the stream reads tips when it loads a file.
    if (!stream.reloadGeometry(instrumentId, name, target))
        return failed(instrumentId, target,
                      "the tip was written to " + target +
                          ", but the tool could not be loaded again from it");
    return {Outcome::Kind::Saved, target, ""};
}

std::string AtracsysToolTipSaver::workspaceFolder(const QWidget* widget) {
    const auto* window = widget ? qobject_cast<const MainWindow*>(widget->window()) : nullptr;
    if (!window || window->workspaceFile().empty())
        return std::string();
    return QFileInfo(QString::fromStdString(window->workspaceFile())).absolutePath().toStdString();
}

} // namespace Kestrion
