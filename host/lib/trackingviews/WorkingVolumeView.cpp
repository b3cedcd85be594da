#include "host/lib/trackingviews/WorkingVolumeView.h"

#include "host/lib/trackingviews/StreamCondition.h"
#include "host/lib/trackingviews/TrackingStreamTap.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"

#include <QCheckBox>
#include <QLabel>
#include <QMouseEvent>
#include <QOpenGLShaderProgram>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace Kestrion {

namespace {

constexpr int RefreshMs = 33;
/// The volume shown before a frame tells the camera's model: the depths of a typical one.
constexpr double DefaultNearMM = 200.0, DefaultFarMM = 1400.0;

const char* const VertexShader = R"(
attribute highp vec3 position;
attribute lowp vec3 colour;
uniform highp mat4 viewProjection;
uniform highp float pointSize;
varying lowp vec3 fragmentColour;
void main() {
    gl_Position = viewProjection * vec4(position, 1.0);
    gl_PointSize = pointSize;
    fragmentColour = colour;
})";

const char* const FragmentShader = R"(
varying lowp vec3 fragmentColour;
void main() {
    gl_FragColor = vec4(fragmentColour, 1.0);
})";

QVector3D toQt(const Eigen::Vector3d& v) {
    return QVector3D(static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z()));
}

} // namespace

WorkingVolumeView::WorkingVolumeView(QWidget* parent)
    : QOpenGLWidget(parent)
    , m_referenceToggle(new QCheckBox(tr("In the reference's frame"), this))
    , m_note(new QLabel(this)) {
    setObjectName(QStringLiteral("WorkingVolumeView"));
    // Over the scene, in its top-left corner: light on the dark background.
    m_referenceToggle->setObjectName(QStringLiteral("ReferenceFrameToggle"));
    m_referenceToggle->setStyleSheet(QStringLiteral("color: white"));
    m_referenceToggle->setToolTip(
        tr("Draw the scene in the frame of the reference instrument (chosen in the instrument view)"));
    m_referenceToggle->move(6, 4);
    m_referenceToggle->adjustSize();
    m_referenceToggle->setEnabled(false);
    connect(m_referenceToggle, &QCheckBox::toggled, this, &WorkingVolumeView::setInReferenceFrame);
    m_note->setObjectName(QStringLiteral("ReferenceFrameNote"));
    m_note->setStyleSheet(QStringLiteral(
        "color: white; background: #b00000; font-weight: bold; padding: 3px; border-radius: 3px"));
    m_note->move(6, 28);
    m_note->hide();
    setMinimumSize(200, 150);
    setToolTip(tr("Left button: turn; right or middle button: pan; wheel: zoom; double click: reset"));
    connect(&m_timer, &QTimer::timeout, this, &WorkingVolumeView::refresh);
    m_timer.setInterval(RefreshMs);
    resetView();
    m_scene.build(nullptr);
}

WorkingVolumeView::~WorkingVolumeView() {
    m_tap.reset();
    makeCurrent();
    m_program.reset();
    doneCurrent();
}

void WorkingVolumeView::setStream(TrackingStream* stream) {
    m_tap.reset();
    m_frame.reset();
    m_current = true;
    m_deviceType.clear();
    m_scene = WorkingVolumeScene();
    if (stream)
        m_tap = std::make_unique<TrackingStreamTap>(*stream);
    rebuild();
}

TrackingStream* WorkingVolumeView::stream() const {
    return m_tap ? &m_tap->stream() : nullptr;
}

void WorkingVolumeView::resetView() {
    if (!m_scene.referenceFrame().empty()) {
        // Around the reference, from behind and above it, the camera in the distance.
        m_centre = Eigen::Vector3d::Zero();
        m_yaw = -35.0;
        m_pitch = 25.0;
        m_distance = 1500.0;
        update();
        return;
    }
    const auto& volume = m_scene.volume();
    const double nearMM = volume ? volume->nearMM : DefaultNearMM;
    const double farMM = volume ? volume->farMM : DefaultFarMM;
    m_centre = Eigen::Vector3d(0.0, 0.0, (nearMM + farMM) / 2.0);
    m_yaw = -35.0;
    m_pitch = 25.0;
    m_distance = 2.6 * farMM;
    update();
}

void WorkingVolumeView::setInReferenceFrame(bool inReference) {
    m_inReference = inReference;
    if (m_referenceToggle->isChecked() != inReference)
        m_referenceToggle->setChecked(inReference); // comes back here, changing nothing
    rebuild();
}

QString WorkingVolumeView::noteText() const {
    return m_note->isHidden() ? QString() : m_note->text();
}

void WorkingVolumeView::rebuild() {
    m_reference = m_tap ? m_tap->stream().referenceInstrument() : std::string();
    m_referenceToggle->setEnabled(!m_reference.empty());
    const std::string frame = m_inReference ? m_reference : std::string();
    if (frame != m_scene.referenceFrame()) {
        m_scene.setReferenceFrame(frame);
        resetView();
    }
    m_scene.build(m_frame.get(), m_current);
    if (frame.empty() || m_scene.referenceSeen()) {
        m_note->hide();
    } else {
        m_note->setText(tr("Reference not seen: no instrument can be drawn in its frame"));
        m_note->adjustSize();
        m_note->show();
    }
    update();
}

void WorkingVolumeView::refresh() {
    if (!m_tap)
        return;
    // A reference chosen or dropped (in the instrument view) shows at once.
    const bool referenceChanged = m_tap->stream().referenceInstrument() != m_reference;
    // The health before the frame: a frame arriving in between is newer than the health says.
    const bool current = StreamCondition::of(m_tap->stream()).current;
    std::shared_ptr<const TrackingStreamData> frame = m_tap->latest().take();
    if (!frame) {
        // No new frame: the last one is drawn again only when the stream's condition or its
        // reference changed.
        if (!m_frame || (current == m_current && !referenceChanged)) {
            if (referenceChanged)
                rebuild();
            return;
        }
        frame = m_frame;
    }
    m_frame = frame;
    m_current = current;
    const auto* device = frame->component<DeviceFrameInfo>();
    if (device && device->deviceType() != m_deviceType) {
        m_deviceType = device->deviceType();
        m_scene.setVolume(WorkingVolume::forDeviceType(m_deviceType));
        resetView();
    }
    // A marker's geometry is asked of the stream once, when the instrument first shows.
    for (const TrackingInstrument& instrument : frame->instruments())
        if (!m_scene.hasGeometry(instrument.ID()))
            m_scene.setGeometry(instrument.ID(), m_tap->stream().instrumentGeometry(instrument.ID()));
    rebuild();
}

QMatrix4x4 WorkingVolumeView::viewProjection() const {
    // Camera coordinates have y down and z forward: the view's "up" is -y.
    const double yaw = m_yaw * M_PI / 180.0, pitch = m_pitch * M_PI / 180.0;
    const Eigen::Vector3d backwards(std::sin(yaw) * std::cos(pitch), -std::sin(pitch),
                                    -std::cos(yaw) * std::cos(pitch));
    const Eigen::Vector3d eye = m_centre + backwards * viewDistance();
    QMatrix4x4 projection;
    projection.perspective(40.0f, static_cast<float>(std::max(1, width())) / std::max(1, height()), 10.0f,
                           static_cast<float>(viewDistance() * 4.0 + 10000.0));
    QMatrix4x4 view;
    view.lookAt(toQt(eye), toQt(m_centre), QVector3D(0.0f, -1.0f, 0.0f));
    return projection * view;
}

double WorkingVolumeView::viewDistance() const {
    // A view narrower than high moves back, so that the scene keeps its width.
    const double aspect = static_cast<double>(std::max(1, width())) / std::max(1, height());
    return m_distance / std::min(1.0, aspect);
}

QPointF WorkingVolumeView::project(const Eigen::Vector3d& point) const {
    const QVector3D ndc = viewProjection().map(toQt(point)); // with the perspective division
    return QPointF((ndc.x() + 1.0) / 2.0 * width(), (1.0 - ndc.y()) / 2.0 * height());
}

void WorkingVolumeView::initializeGL() {
    initializeOpenGLFunctions();
    m_program = std::make_unique<QOpenGLShaderProgram>();
    m_program->addShaderFromSourceCode(QOpenGLShader::Vertex, VertexShader);
    m_program->addShaderFromSourceCode(QOpenGLShader::Fragment, FragmentShader);
    m_program->bindAttributeLocation("position", 0);
    m_program->bindAttributeLocation("colour", 1);
    if (!m_program->link())
        m_program.reset(); // the view stays black rather than failing the window
}

void WorkingVolumeView::draw(const std::vector<WorkingVolumeScene::Vertex>& vertices, unsigned mode,
                             float pointSize) {
    if (vertices.empty())
        return;
    m_program->setUniformValue("pointSize", pointSize);
    const int stride = static_cast<int>(sizeof(WorkingVolumeScene::Vertex));
    m_program->enableAttributeArray(0);
    m_program->enableAttributeArray(1);
    m_program->setAttributeArray(0, GL_FLOAT, vertices.front().position.data(), 3, stride);
    m_program->setAttributeArray(1, GL_FLOAT, vertices.front().colour.data(), 3, stride);
    glDrawArrays(mode, 0, static_cast<GLsizei>(vertices.size()));
    m_program->disableAttributeArray(0);
    m_program->disableAttributeArray(1);
}

void WorkingVolumeView::paintGL() {
    glClearColor(0.08f, 0.09f, 0.12f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    if (!m_program)
        return;
    glEnable(GL_DEPTH_TEST);
    glEnable(0x8642); // GL_PROGRAM_POINT_SIZE: the shader sets the size of points
    m_program->bind();
    m_program->setUniformValue("viewProjection", viewProjection());
    draw(m_scene.lines(), GL_LINES, 1.0f);
    draw(m_scene.rawPoints(), GL_POINTS, 5.0f);
    draw(m_scene.points(), GL_POINTS, 9.0f);
    m_program->release();
}

void WorkingVolumeView::showEvent(QShowEvent* event) {
    QOpenGLWidget::showEvent(event);
    m_timer.start();
}

void WorkingVolumeView::hideEvent(QHideEvent* event) {
    QOpenGLWidget::hideEvent(event);
    m_timer.stop();
}

void WorkingVolumeView::mousePressEvent(QMouseEvent* event) {
    m_lastMouse = event->pos();
}

void WorkingVolumeView::mouseMoveEvent(QMouseEvent* event) {
    const QPoint delta = event->pos() - m_lastMouse;
    m_lastMouse = event->pos();
    if (event->buttons() & Qt::LeftButton) {
        m_yaw += delta.x() * 0.4;
        m_pitch = std::clamp(m_pitch + delta.y() * 0.4, -89.0, 89.0);
    } else if (event->buttons() & (Qt::RightButton | Qt::MiddleButton)) {
        // Moves the centre in the view's plane, by as much as the scene moves under the mouse.
        const double yaw = m_yaw * M_PI / 180.0, pitch = m_pitch * M_PI / 180.0;
        const Eigen::Vector3d right(std::cos(yaw), 0.0, std::sin(yaw));
        const Eigen::Vector3d up(std::sin(yaw) * std::sin(pitch), -std::cos(pitch),
                                 -std::cos(yaw) * std::sin(pitch));
        const double mmPerPixel =
            2.0 * viewDistance() * std::tan(20.0 * M_PI / 180.0) / std::max(1, height());
        m_centre += (-delta.x() * right + delta.y() * up) * mmPerPixel;
    }
    update();
}

void WorkingVolumeView::wheelEvent(QWheelEvent* event) {
    const double steps = event->angleDelta().y() / 120.0;
    m_distance = std::clamp(m_distance * std::pow(0.85, steps), 50.0, 20000.0);
    update();
}

void WorkingVolumeView::mouseDoubleClickEvent(QMouseEvent* event) {
    (void)event;
    resetView();
}

} // namespace Kestrion
