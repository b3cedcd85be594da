#pragma once

#include "host/core/Directory.h"
#include "host/core/Properties.h"
#include "host/core/SignalReceiver.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/QtMetaTypes.h"

#include <Eigen/Core>
#include <QFuture>
#include <QFutureWatcher>
#include <QPointer>
#include <QWidget>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class Ui_AtracsysMarkersWidget;

namespace Kestrion {

class AtracsysTrackingStreamBase;
class Progress;
class StreamData;
class TrackingInstrumentFiducialsData;

/// Makes new passive markers from the fiducials the camera sees, saves their
/// geometry files, loads geometry files into the stream, refines the geometry
/// of a tracked marker, opens the user geometry folder and sets the camera's
/// integration time.
///
/// Threads: the widget lives on the GUI thread. onStreamData and createMarker
/// run on the stream's acquisition thread and hand the save to the GUI thread
/// as a queued call; the geometry optimisation runs on Qt's global thread pool
/// and reaches the widget only through queued calls and its watcher's
/// finished() signal.
class AtracsysMarkersWidget : public QWidget, public SignalReceiver {
    Q_OBJECT
public:
    /// `showOptimizeButton` shows or hides "Optimize Geometry".
    AtracsysMarkersWidget(AtracsysTrackingStreamBase* stream, bool showOptimizeButton,
                          QWidget* parent = nullptr);
    /// Waits for a running optimisation, then ends the connections to the stream.
    ~AtracsysMarkersWidget() override;

    /// The folder where the camera's own software keeps marker geometries:
    /// $HOME/.local/share/data/demo_x64Atracsys/PassiveTrackingSDK/.
    static std::string userGeometryFolder();

    /// The geometry file text of the points with the given id: the fiducial
    /// sections first, then the geometry section.
    static std::string geometryText(const std::vector<Eigen::Vector3d>& points, std::uint32_t id);

    /// The first id from 1000 on that neither names a geometry file of the user
    /// geometry folder (by prefix: "geometry<id>...") nor an instrument of the
    /// stream ("atracsys-<id>").
    std::uint32_t nextAvailableId() const;

    /// The folder addToInstruments() looks in first.
    void setOutputFolder(std::unique_ptr<Filesystem::Directory> folder);
    const Filesystem::Directory* outputFolder() const { return m_outputFolder.get(); }

    /// Where the optimisation reports its progress (the host's main window; may
    /// be null).
    void setMainWindow(MainWindow* window);
    MainWindow* mainWindow() const { return m_mainWindow; }

    /// Settings handed to the geometry optimisation ("optimizationMode",
    /// "keepCoordinateLocation", "recordedFrames"); the geometry id is set by the
    /// widget.
    void setOptimizationParameters(const Properties& parameters);

    /// Makes the marker points from the fiducials of one frame (acquisition
    /// thread) and asks the GUI thread to save them.
    void createMarker(const TrackingInstrumentFiducialsData* fiducials);
    /// Every data item of the stream (acquisition thread).
    void onStreamData(std::shared_ptr<const StreamData> data);

    /// The points of the marker made or optimised last (millimetres, marker
    /// frame).
    std::vector<Eigen::Vector3d> markerPoints() const;
    /// True from "Create" until the next frame with fiducial qualities.
    bool isMarkerRequested() const { return m_createMarkerRequested.load(); }
    /// True while the geometry optimisation runs.
    bool isOptimizing() const;

public slots:
    void updateGUI();
    void onCreateMarker();
    void onOptimizeMarker();
    void onOpenUserGeometryDir();
    void onLoad();
    /// Writes the marker points as a geometry file chosen by the user: a new
    /// marker (empty tracker id) gets the next free id, an optimised one keeps
    /// the id of its tracker.
    void saveGeometry(bool optimized = false, std::string trackerId = std::string());
    /// Loads the geometry file of an id ("1000" or "atracsys-1000") into the
    /// stream, from the output folder if one is set and has it, else from the
    /// user geometry folder.
    void addToInstruments(std::string id);

private:
    /// Opens and starts the stream when needed; false when it could not be
    /// brought to run.
    bool ensureRunning();
    /// The optimisation task (pool thread).
    void optimize(const std::string& trackerId, Progress* progress, const Properties& parameters);
    void setMarkerPoints(std::vector<Eigen::Vector3d> points);
    /// Notes the tool tip of the tracker's geometry file for the optimised geometry's save
    /// (optimisation thread); none when the refined geometry does not keep the original frame.
    void keepTip(const std::string& trackerId, bool sameFrame);

    std::unique_ptr<Ui_AtracsysMarkersWidget> m_ui;
    AtracsysTrackingStreamBase* m_stream; // not owned
    bool m_showOptimizeButton;
    // Set by "Create" on the GUI thread, cleared by createMarker on the
    // acquisition thread.
    std::atomic<bool> m_createMarkerRequested{false};
    // Written by createMarker (acquisition thread) and the optimisation (pool
    // thread), read by saveGeometry (GUI thread).
    mutable std::mutex m_pointsMutex;
    std::vector<Eigen::Vector3d> m_markerPoints;
    std::optional<Eigen::Vector3d> m_optimizedTip; // the tool tip kept with an optimised geometry
    std::unique_ptr<Filesystem::Directory> m_outputFolder;
    QFuture<void> m_optimization;
    QFutureWatcher<void> m_optimizationWatcher;
    QPointer<MainWindow> m_mainWindow;
    Properties m_optimizationParameters; // GUI thread; the task gets a copy
};

} // namespace Kestrion
