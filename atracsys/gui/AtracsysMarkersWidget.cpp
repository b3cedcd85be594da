#include "atracsys/gui/AtracsysMarkersWidget.h"
#include "atracsys/gui/AtracsysNewMarkerCheck.h"

#include "atracsys/calibration/AtracsysPivotFile.h"
#include "atracsys/gui/AtracsysMetaTypes.h"
#include "atracsys/gui/AtracsysNewMarkerCheck.h"
#include "atracsys/gui/AtracsysPivotCalibrationPanel.h"
#include "atracsys/optimization/AtracsysGeometryOptimizationAlgorithm.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"
#include "ui_AtracsysMarkersWidget.h"

#include "host/core/Directory.h"
#include "host/core/File.h"
#include "host/core/Geometry.h"
#include "host/core/Log.h"
#include "host/core/Path.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"

#include <QDesktopServices>
#include <QFile>
#include <QMetaObject>
#include <QtConcurrent/QtConcurrentRun>

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <sstream>

namespace Kestrion {

namespace {

constexpr const char* Category = "AtracsysMarkersWidget";
constexpr const char* InstrumentPrefix = "atracsys-";
constexpr std::uint32_t FirstMarkerId = 1000;
/// More fiducials than a passive marker carries: the camera sees more than one
/// marker.
constexpr std::size_t MaxMarkerFiducials = 6;

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

} // namespace

AtracsysMarkersWidget::AtracsysMarkersWidget(AtracsysTrackingStreamBase* stream, bool showOptimizeButton,
                                             QWidget* parent)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui_AtracsysMarkersWidget>())
    , m_stream(stream)
    , m_showOptimizeButton(showOptimizeButton) {
    registerAtracsysMetaTypes();
    if (m_stream) {
        // State changes come from the stream's control thread: refresh on the GUI
        // thread.
        m_stream->signalStateChanged.connect(this, [this](Stream::State) {
            QMetaObject::invokeMethod(this, "updateGUI", Qt::QueuedConnection);
        });
        m_stream->signalStreamData.connect(
            this, [this](std::shared_ptr<const StreamData> data) { onStreamData(std::move(data)); });
    }

    m_ui->setupUi(this);
    m_ui->optimizeGeomButton->setVisible(m_showOptimizeButton);
    // Beside the geometry actions, below the form's own controls.
    m_ui->gridLayout->addWidget(new AtracsysPivotCalibrationPanel(m_stream, this), 6, 0, 1, 2);
    if (m_stream)
        m_ui->integrationTimeSpinbox->setValue(m_stream->imageIntegrationTime());

    connect(m_ui->integrationTimeSpinbox, QOverload<int>::of(&QSpinBox::valueChanged), this,
            [this](int value) {
                if (m_stream)
                    m_stream->setImageIntegrationTime(value);
            });
    connect(m_ui->nameEdit, &QLineEdit::textChanged, this,
            [this](const QString& text) { m_ui->createButton->setEnabled(!text.isEmpty()); });
    connect(m_ui->createButton, &QPushButton::pressed, this, &AtracsysMarkersWidget::onCreateMarker);
    connect(m_ui->optimizeGeomButton, &QPushButton::pressed, this, &AtracsysMarkersWidget::onOptimizeMarker);
    connect(m_ui->openSDKButton, &QPushButton::pressed, this, &AtracsysMarkersWidget::onOpenUserGeometryDir);
    connect(m_ui->loadButton, &QPushButton::pressed, this, &AtracsysMarkersWidget::onLoad);
    connect(&m_optimizationWatcher, &QFutureWatcher<void>::finished, this, &AtracsysMarkersWidget::updateGUI);
    updateGUI();
}

AtracsysMarkersWidget::~AtracsysMarkersWidget() {
    if (m_optimization.isRunning()) {
        KESTRION_LOG_WARN(Category, "Cannot close AtracsysMarkersWidget while "
                                    "initializing Tracking Hardware. "
                                    "Waiting until initialization has finished.");
        m_optimization.waitForFinished();
    }
    // The stream's threads call into this widget until the connections are gone.
    disconnectAllSignals();
}

std::string AtracsysMarkersWidget::userGeometryFolder() {
    return Filesystem::Path::homeDirectory().str() +
           "/.local/share/data/demo_x64Atracsys/PassiveTrackingSDK/";
}

std::string AtracsysMarkersWidget::geometryText(const std::vector<Eigen::Vector3d>& points,
                                                std::uint32_t id) {
    std::ostringstream text;
    for (std::size_t i = 0; i < points.size(); ++i) {
        text << "[fiducial" << i << "]\n";
        text << "x=" << points[i].x() << "\n";
        text << "y=" << points[i].y() << "\n";
        text << "z=" << points[i].z() << "\n";
    }
    text << "[geometry]\n";
    text << "count=" << points.size() << "\n";
    text << "id=" << id << "\n";
    return text.str();
}

std::uint32_t AtracsysMarkersWidget::nextAvailableId() const {
    std::vector<std::string> fileNames;
    for (const Filesystem::Path& file :
         Filesystem::Directory(Filesystem::Path(userGeometryFolder())).files("geometry*.ini"))
        fileNames.push_back(file.fileName());
    std::vector<std::string> trackerIds;
    if (m_stream)
        for (const TrackingInstrument& instrument : m_stream->instruments())
            trackerIds.push_back(instrument.ID());

    for (std::uint32_t id = FirstMarkerId;; ++id) {
        const std::string number = std::to_string(id);
        const std::string filePrefix = "geometry" + number;
        const std::string trackerId = InstrumentPrefix + number;
        const bool taken =
            std::any_of(fileNames.begin(), fileNames.end(),
                        [&](const std::string& name) { return startsWith(name, filePrefix); }) ||
            std::find(trackerIds.begin(), trackerIds.end(), trackerId) != trackerIds.end();
        if (!taken)
            return id;
    }
}

void AtracsysMarkersWidget::setOutputFolder(std::unique_ptr<Filesystem::Directory> folder) {
    m_outputFolder = std::move(folder);
}

void AtracsysMarkersWidget::setMainWindow(MainWindow* window) {
    m_mainWindow = window;
}

void AtracsysMarkersWidget::setOptimizationParameters(const Properties& parameters) {
    m_optimizationParameters = parameters;
}

std::vector<Eigen::Vector3d> AtracsysMarkersWidget::markerPoints() const {
    std::lock_guard<std::mutex> lock(m_pointsMutex);
    return m_markerPoints;
}

void AtracsysMarkersWidget::setMarkerPoints(std::vector<Eigen::Vector3d> points) {
    std::lock_guard<std::mutex> lock(m_pointsMutex);
    m_markerPoints = std::move(points);
}

bool AtracsysMarkersWidget::isOptimizing() const {
    return m_optimization.isRunning();
}

void AtracsysMarkersWidget::updateGUI() {
    const bool initialized = m_stream && m_stream->isInitialized();
    m_ui->integrationTimeSpinbox->setEnabled(initialized);
    if (m_stream) {
        const QSignalBlocker blocker(m_ui->integrationTimeSpinbox);
        m_ui->integrationTimeSpinbox->setValue(m_stream->imageIntegrationTime());
    }
    // One optimisation at a time.
    m_ui->optimizeGeomButton->setEnabled(!m_optimization.isRunning());
}

bool AtracsysMarkersWidget::ensureRunning() {
    // Waiting blocks the GUI thread for the transition; the stream's state
    // changes reach updateGUI as queued calls, so nothing here waits for this
    // thread.
    if (!m_stream->isInitialized() && !m_stream->openAsync().get())
        return false;
    if (!m_stream->isStateOneOf({Stream::State::Starting, Stream::State::Running}) &&
        !m_stream->startAsync().get())
        return false;
    return true;
}

void AtracsysMarkersWidget::onCreateMarker() {
    if (!m_stream)
        return;
    if (m_stream->fiducialQueryMode() != AtracsysTrackingStreamBase::AllFiducials)
        KESTRION_LOG_DEBUG(Category, "Fiducial query mode changed to ALL for marker creation");
    m_stream->setFiducialQueryMode(AtracsysTrackingStreamBase::AllFiducials);
    if (!ensureRunning())
        return;
    m_createMarkerRequested = true;
}

void AtracsysMarkersWidget::onStreamData(std::shared_ptr<const StreamData> data) {
    const std::shared_ptr<const TrackingStreamData> tracking = findStreamData<TrackingStreamData>(data);
    if (!tracking)
        return;
    const auto* fiducials = tracking->component<TrackingInstrumentFiducialsData>();
    if (fiducials && fiducials->hasQualities() && m_createMarkerRequested.load())
        createMarker(fiducials);
}

void AtracsysMarkersWidget::createMarker(const TrackingInstrumentFiducialsData* fiducials) {
    const std::size_t count = fiducials ? fiducials->size() : 0;
    if (count == 0) {
        KESTRION_LOG_ERROR(Category, "No fiducials in raw data.");
    } else if (count > MaxMarkerFiducials ||
               std::any_of(fiducials->probabilities().begin(), fiducials->probabilities().end(),
                           [](double quality) { return quality < 1.0; })) {
        KESTRION_LOG_ERROR(Category, "Ambiguous fiducials detected. Ensure that no "
                                     "fiducial pair is aligned with camera.");
    } else {
        KESTRION_LOG_INFO(Category, "Create new marker with " << count << " fiducials.");
        std::vector<Eigen::Vector3d> points = fiducials->positions();
        Eigen::Vector3d centroid;
        std::array<Eigen::Vector3d, 3> axes;
        if (Geometry::fitAxesPCA(points, centroid, axes)) {
            Eigen::Matrix3d rotation;
            for (int row = 0; row < 3; ++row)
                rotation.row(row) = axes[static_cast<std::size_t>(row)].transpose();
            for (Eigen::Vector3d& point : points)
                point = rotation * (point - centroid);
            setMarkerPoints(std::move(points));
            QMetaObject::invokeMethod(this, "saveGeometry", Qt::QueuedConnection);
        } else {
            KESTRION_LOG_ERROR(Category, "No marker made: the "
                                             << count
                                             << " fiducials do not define a marker frame (at "
                                                "least three fiducials not in a line are needed).");
        }
    }
    m_createMarkerRequested = false;
}

void AtracsysMarkersWidget::saveGeometry(bool optimized, std::string trackerId) {
    // Whether the marker is new or optimised follows from the tracker id alone.
    Q_UNUSED(optimized);
    const std::vector<Eigen::Vector3d> points = markerPoints();
    if (points.empty())
        return;

    std::uint32_t id = 0;
    std::string suggestedName;
    if (trackerId.empty()) {
        id = nextAvailableId();
        suggestedName = m_ui->nameEdit->text().toStdString() + ".ini";
    } else {
        try {
            id = static_cast<std::uint32_t>(
                std::stoul(trackerId.substr(std::string(InstrumentPrefix).size())));
        } catch (const std::exception&) {
            KESTRION_LOG_ERROR(Category, "Cannot save the geometry of "
                                             << trackerId << ": it is not an Atracsys tracker id.");
            return;
        }
        suggestedName = "geometry" + std::to_string(id) + "_optimized.ini";
    }
    std::string text = geometryText(points, id);
    if (!trackerId.empty()) {
        std::lock_guard<std::mutex> lock(m_pointsMutex); // written by the optimisation's thread
        if (m_optimizedTip)
            text = AtracsysPivotFile::withPivot(text, *m_optimizedTip);
    }

    const std::string proposed = suggestedName == ".ini" ? std::string("newmarker") : suggestedName;
    const std::string fileName = QtHelpers::getSaveFilename("Save marker geometry", "ini", proposed);
    if (fileName.empty())
        return;
    if (!Filesystem::File::writeText(Filesystem::Path(fileName), text))
        return;

    KESTRION_LOG_INFO(Category, "the marker geometry has been written to " << fileName);
    if (trackerId.empty())
        KESTRION_LOG_INFO(Category, "before being used, it is recommend to run a geometry optimization");
    KESTRION_LOG_INFO(Category, "suggested name: " << suggestedName);
    if (trackerId.empty() && m_stream) // a new marker the camera could confuse with a loaded one
        SpryTrack::warnAboutNewMarker(*m_stream, fileName, points);
    QDesktopServices::openUrl(QtHelpers::localFileUrl(Filesystem::Path(fileName).parent().str()));
}

void AtracsysMarkersWidget::onLoad() {
    if (!m_stream)
        return;
    const std::string fileName =
        QtHelpers::getOpenFilename("Select Geometry file", "Geometry files (*.ini)", "Tracker");
    if (!fileName.empty())
        m_stream->addGeometry(Filesystem::Path(fileName).fileName(), fileName);
}

void AtracsysMarkersWidget::onOpenUserGeometryDir() {
    const std::string folder = userGeometryFolder();
    if (Filesystem::Directory(Filesystem::Path(folder)).exists())
        QDesktopServices::openUrl(QtHelpers::localFileUrl(folder));
}

void AtracsysMarkersWidget::addToInstruments(std::string id) {
    if (!m_stream)
        return;
    if (startsWith(id, InstrumentPrefix))
        id = id.substr(std::string(InstrumentPrefix).size());
    const std::string fileName = "geometry" + id + ".ini";
    std::vector<Filesystem::Directory> folders;
    if (m_outputFolder)
        folders.push_back(*m_outputFolder);
    folders.emplace_back(Filesystem::Path(userGeometryFolder()));
    for (const Filesystem::Directory& folder : folders) {
        const Filesystem::Path file = folder.filePath(fileName);
        if (file.isFile()) {
            m_stream->addGeometry(fileName, file.str());
            return;
        }
    }
    KESTRION_LOG_ERROR(
        Category, "No geometry file "
                      << fileName << " in " << folders.front().path().str()
                      << (folders.size() > 1 ? " nor in " + folders.back().path().str() : std::string()));
}

void AtracsysMarkersWidget::onOptimizeMarker() {
    if (!m_stream || m_optimization.isRunning())
        return;
    if (m_stream->fiducialQueryMode() != AtracsysTrackingStreamBase::MarkerFiducials)
        KESTRION_LOG_INFO(Category, "Fiducial query mode changed to MARKER for marker optimization");
    m_stream->setFiducialQueryMode(AtracsysTrackingStreamBase::MarkerFiducials);
    if (!ensureRunning())
        return;

    std::string trackerId;
    for (const TrackingInstrument& instrument : m_stream->instruments()) {
        if (instrument.active) {
            trackerId = instrument.ID();
            break;
        }
    }
    if (trackerId.empty()) {
        KESTRION_LOG_WARN(Category, "No active tracker to be optimized.");
        return;
    }
    KESTRION_LOG_INFO(Category, "Run optimization on tracker " << trackerId);

    // The progress display is taken here, on the GUI thread that owns the window.
    Progress* progress = m_mainWindow ? m_mainWindow->progress() : nullptr;
    m_optimization = QtConcurrent::run([this, trackerId, progress, parameters = m_optimizationParameters] {
        optimize(trackerId, progress, parameters);
    });
    m_optimizationWatcher.setFuture(m_optimization);
    updateGUI();
}

void AtracsysMarkersWidget::optimize(const std::string& trackerId, Progress* progress,
                                     const Properties& parameters) {
    try {
        AtracsysGeometryOptimizationAlgorithm algorithm(m_stream);
        algorithm.configure(&parameters);
        algorithm.setGeometryId(trackerId);
        algorithm.setProgress(progress);
        algorithm.compute();
        if (algorithm.status() != Algorithm::Success)
            return;
        if (m_stream->geometryCoordinates(trackerId).empty()) {
            KESTRION_LOG_WARN(Category, "Coordinates from marker could not be retrieved.");
            return;
        }
        setMarkerPoints(algorithm.optimizedCoordinates());
        keepTip(trackerId, algorithm.keepCoordinateLocation());
        if (m_stream->removeGeometry(trackerId))
            QMetaObject::invokeMethod(this, "saveGeometry", Qt::QueuedConnection, Q_ARG(bool, true),
                                      Q_ARG(std::string, trackerId));
    } catch (const std::exception& e) {
        // Nothing may leave a pool thread: report it and end the task.
        KESTRION_LOG_ERROR(Category, "Geometry optimization of " << trackerId << " failed: " << e.what());
    }
}

void AtracsysMarkersWidget::keepTip(const std::string& trackerId, bool sameFrame) {
    std::optional<Eigen::Vector3d> tip;
    QFile file(QString::fromStdString(AtracsysPivotCalibrationPanel::geometryPath(*m_stream, trackerId)));
    if (file.open(QIODevice::ReadOnly)) {
        const QByteArray bytes = file.readAll();
        tip = AtracsysPivotFile::pivotOf(
            std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())));
    }
    // The tip is a point of the marker's frame: a refined geometry in a frame of its own loses it.
    if (tip && !sameFrame) {
        KESTRION_LOG_WARN(Category, "The tool tip of " << trackerId
                                                       << " is not kept: the optimized geometry has a new "
                                                          "coordinate frame, calibrate the tip again");
        tip.reset();
    }
    std::lock_guard<std::mutex> lock(m_pointsMutex); // read by saveGeometry on the GUI thread
    m_optimizedTip = tip;
}

} // namespace Kestrion
