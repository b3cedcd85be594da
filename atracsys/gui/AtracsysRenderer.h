#pragma once

#include "atracsys/stream/AtracsysTrackingStreamBase.h"
#include "host/core/SignalConnection.h"

#include <Eigen/Core>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace Kestrion {

class DisplayWidgetMulti;
class GlEllipse;
class GlLine;
class GlView;
class SharedImageSet;

/// Shows the left and right camera images of the stream in two views of the host's display and
/// draws an ellipse and a cross on every fiducial the camera detected in each image.
///
/// While the stream does not deliver (the host's StreamHealth: stopped, closed, camera not
/// delivering, data ended) both views say "no current image" over the last image they show.
///
/// Threads: the stream's camera update arrives on its acquisition thread; the handler only copies
/// it under the mutex and queues updateAnnotations(), which runs on the GUI thread. Everything
/// else is GUI thread only.
class AtracsysRenderer : public QObject {
    Q_OBJECT
public:
    /// One camera: its view in the display, the image set shown in it and one ellipse, one
    /// horizontal and one vertical line per fiducial (the three lists have the same length).
    struct AtracsysView {
        QPointer<GlView> view;
        std::shared_ptr<SharedImageSet> imageSet;
        std::vector<std::unique_ptr<GlEllipse>> ellipses;
        std::vector<std::unique_ptr<GlLine>> horizontalLines;
        std::vector<std::unique_ptr<GlLine>> verticalLines;
    };

    /// Adds a view per camera to the display and listens to the stream's camera updates.
    AtracsysRenderer(AtracsysTrackingStreamBase& stream, DisplayWidgetMulti& display);
    /// Stops listening, removes the annotations and the views.
    ~AtracsysRenderer() override;

    /// The view of the left (0) or right (1) camera.
    const AtracsysView& cameraView(std::size_t camera) const { return m_views.at(camera); }
    /// The text over both views while the images are not current.
    static const char* const NoCurrentImage;

public slots:
    /// Shows the latest camera update: images and annotations.
    void updateAnnotations();

private:
    void onAtracsysUpdate(const AtracsysUpdate& update);
    /// Brings one camera's annotations in line with its update. `imageOffset` is the position of
    /// the image's origin in the camera's detection coordinates.
    static void updateCamera(const AtracsysSingleCameraUpdate& update, AtracsysView& view,
                             const Eigen::Vector2d& imageOffset);
    /// Says "no current image" on the views while the stream does not deliver.
    void showCondition();

    const Stream& m_stream;
    /// Reads the stream's health a few times a second (GUI thread).
    QTimer m_conditionTimer;

    QPointer<DisplayWidgetMulti> m_display;
    std::array<AtracsysView, 2> m_views;

    // The update is written on the acquisition thread and read on the GUI thread.
    std::mutex m_mutex;
    AtracsysUpdate m_update;
    // The update being drawn (GUI thread only).
    AtracsysUpdate m_shown;
    // Set while an updateAnnotations() call is queued, so that a busy GUI thread gets one call
    // for many frames rather than one per frame.
    std::atomic<bool> m_updateQueued{false};

    SignalConnection m_connection;
};

} // namespace Kestrion
