#pragma once

#include "host/lib/trackingviews/WorkingVolumeScene.h"

#include <Eigen/Core>

#include <QMatrix4x4>
#include <QOpenGLFunctions>
#include <QOpenGLWidget>
#include <QPoint>
#include <QTimer>

#include <memory>
#include <string>

class QCheckBox;
class QLabel;
class QOpenGLShaderProgram;

namespace Kestrion {

class TrackingStream;
class TrackingStreamData;
class TrackingStreamTap;

/// A 3D view of a tracking stream's working volume (see WorkingVolumeScene), drawn with OpenGL
/// through Qt's QOpenGLWidget: the camera, the volume of its model when the camera's plugin
/// registered it (WorkingVolume, looked up by the frames' device type), the tracked instruments
/// and the raw fiducials. Refreshed about 30 times a second from the newest frame (the stream's
/// worker only hands frames over); while the stream does not deliver, the instruments of its last
/// frame are drawn as lost. The mouse turns the view about its centre (left button), pans
/// it (right or middle button) and zooms (wheel).
///
/// "In the reference's frame" (a check box over the view, enabled while the stream has a
/// reference instrument) draws the scene in the reference's frame; while the reference is not
/// seen, a note over the view says so and no instrument is drawn. GUI thread only.
class WorkingVolumeView : public QOpenGLWidget, protected QOpenGLFunctions {
    Q_OBJECT
public:
    explicit WorkingVolumeView(QWidget* parent = nullptr);
    ~WorkingVolumeView() override;

    /// Follows that stream (null: none). The stream must outlive its following: call
    /// setStream(nullptr) before it goes.
    void setStream(TrackingStream* stream);
    TrackingStream* stream() const;

    const WorkingVolumeScene& scene() const { return m_scene; }
    /// Where a point (camera coordinates, mm) shows in the widget, in device-independent pixels.
    QPointF project(const Eigen::Vector3d& point) const;
    /// The view's orbit: angles in degrees, distance from the centre in mm.
    double yawDegrees() const { return m_yaw; }
    double pitchDegrees() const { return m_pitch; }
    double distanceMM() const { return m_distance; }
    const Eigen::Vector3d& centre() const { return m_centre; }
    /// Back to the view that shows the whole volume from behind and above the camera (in the
    /// reference's frame: around the reference).
    void resetView();

    /// Draws in the frame of the stream's reference instrument (while it has one), as the check
    /// box does.
    void setInReferenceFrame(bool inReference);
    bool inReferenceFrame() const { return m_inReference; }
    QCheckBox* referenceFrameToggle() const { return m_referenceToggle; }
    /// The note over the view ("" when none shows).
    QString noteText() const;

public slots:
    /// Draws the newest frame (the timer calls it).
    void refresh();

protected:
    void initializeGL() override;
    void paintGL() override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    QMatrix4x4 viewProjection() const;
    double viewDistance() const;
    void draw(const std::vector<WorkingVolumeScene::Vertex>& vertices, unsigned mode, float pointSize);
    /// Builds the scene of the frame drawn last again, in the frame chosen now.
    void rebuild();

    WorkingVolumeScene m_scene;
    std::unique_ptr<TrackingStreamTap> m_tap;
    /// The frame drawn last, and whether it was current then (StreamCondition).
    std::shared_ptr<const TrackingStreamData> m_frame;
    bool m_current = true;
    std::unique_ptr<QOpenGLShaderProgram> m_program;
    std::string m_deviceType;
    QCheckBox* m_referenceToggle;
    QLabel* m_note;
    bool m_inReference = false;
    /// The stream's reference instrument when the scene was last built.
    std::string m_reference;
    QTimer m_timer;
    QPoint m_lastMouse;
    double m_yaw = 0.0;
    double m_pitch = 0.0;
    double m_distance = 0.0;
    Eigen::Vector3d m_centre = Eigen::Vector3d::Zero();
};

} // namespace Kestrion
