#include "atracsys/gui/AtracsysRenderer.h"

#include "host/core/Log.h"
#include "host/core/SharedImageSet.h"
#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/GlEllipse.h"
#include "host/lib/widgets/GlLine.h"
#include "host/lib/widgets/GlView.h"

#include <QMetaObject>

namespace Kestrion {

namespace {

constexpr const char* Category = "AtracsysRenderer";

const Eigen::Vector3d Cyan(0.0, 1.0, 1.0);
/// How often the views check that their image is current: soon enough for a user to see.
constexpr int ConditionCheckMs = 250;
constexpr double EllipseLineWidth = 2.0;
constexpr double CrossLineWidth = 1.5;
/// Half the length of a cross arm, relative to the fiducial's extent: the cross reaches past the
/// ellipse.
constexpr double CrossArm = 0.8;

/// The camera reports detection centres with the top-left corner of the image at (0, 0), which
/// is also the origin of the views' image coordinates.
const Eigen::Vector2d ImageOffset(0.0, 0.0);

template <class Annotation>
std::unique_ptr<Annotation> makeAnnotation(GlView& view, double lineWidth) {
    auto annotation = std::make_unique<Annotation>();
    annotation->setPointSize(0.0);
    annotation->setColor(Cyan);
    annotation->setLineWidth(lineWidth);
    // Placed and shown only once a frame with matching sizes has positioned it.
    annotation->setVisible(false);
    view.addObject(annotation.get());
    return annotation;
}

} // namespace

const char* const AtracsysRenderer::NoCurrentImage = "no current image";

AtracsysRenderer::AtracsysRenderer(AtracsysTrackingStreamBase& stream, DisplayWidgetMulti& display)
    : m_stream(stream)
    , m_display(&display) {
    for (AtracsysView& camera : m_views)
        camera.view = display.addView2D(true, false);
    if (!m_views[0].view || !m_views[1].view) {
        KESTRION_LOG_ERROR(Category, "Could not create views");
    } else {
        for (AtracsysView& camera : m_views) {
            camera.view->setVisible(true);
            camera.imageSet = std::make_shared<SharedImageSet>();
            camera.view->setImageSet(camera.imageSet);
        }
    }
    m_connection =
        stream.signalAtracsysUpdate.connect([this](AtracsysUpdate& update) { onAtracsysUpdate(update); });
    m_conditionTimer.setInterval(ConditionCheckMs);
    connect(&m_conditionTimer, &QTimer::timeout, this, [this]() { showCondition(); });
    m_conditionTimer.start();
    showCondition();
}

void AtracsysRenderer::showCondition() {
    const QString text = m_stream.health().snapshot().delivering() ? QString() : QString(NoCurrentImage);
    for (AtracsysView& camera : m_views)
        if (camera.view)
            camera.view->setOverlayText(text);
}

AtracsysRenderer::~AtracsysRenderer() {
    // Waits for a handler running on the acquisition thread; none starts afterwards.
    m_connection.disconnect();
    for (AtracsysView& camera : m_views) {
        if (camera.view) {
            for (auto& ellipse : camera.ellipses)
                camera.view->removeObject(ellipse.get());
            for (auto& line : camera.horizontalLines)
                camera.view->removeObject(line.get());
            for (auto& line : camera.verticalLines)
                camera.view->removeObject(line.get());
        }
        camera.ellipses.clear();
        camera.horizontalLines.clear();
        camera.verticalLines.clear();
        if (m_display && camera.view)
            m_display->removeView(camera.view);
    }
}

void AtracsysRenderer::onAtracsysUpdate(const AtracsysUpdate& update) {
    {
        // The GUI thread may be reading the previous update in updateAnnotations().
        std::lock_guard<std::mutex> lock(m_mutex);
        m_update = update; // assignment keeps the lists' capacity from frame to frame
    }
    if (!m_updateQueued.exchange(true))
        QMetaObject::invokeMethod(this, "updateAnnotations", Qt::QueuedConnection);
}

void AtracsysRenderer::updateAnnotations() {
    m_updateQueued = false;
    {
        // The acquisition thread replaces the update meanwhile otherwise. Drawing works on a copy,
        // so that the lock is not held across Qt calls and the acquisition never waits for them.
        std::lock_guard<std::mutex> lock(m_mutex);
        m_shown = m_update;
    }
    const std::array<const AtracsysSingleCameraUpdate*, 2> cameras = {&m_shown.left, &m_shown.right};
    for (std::size_t i = 0; i < m_views.size(); ++i) {
        AtracsysView& camera = m_views[i];
        if (!camera.view || !camera.imageSet)
            continue;
        if (cameras[i]->image) {
            camera.imageSet->setFirst(cameras[i]->image);
            camera.imageSet->setModified();
        }
        updateCamera(*cameras[i], camera, ImageOffset);
        camera.view->update();
    }
    showCondition();
}

void AtracsysRenderer::updateCamera(const AtracsysSingleCameraUpdate& update, AtracsysView& view,
                                    const Eigen::Vector2d& imageOffset) {
    const std::size_t count = update.fiducials.size();
    while (view.ellipses.size() < count) {
        view.ellipses.push_back(makeAnnotation<GlEllipse>(*view.view, EllipseLineWidth));
        auto horizontal = makeAnnotation<GlLine>(*view.view, CrossLineWidth);
        horizontal->setDashed(false);
        view.horizontalLines.push_back(std::move(horizontal));
        auto vertical = makeAnnotation<GlLine>(*view.view, CrossLineWidth);
        vertical->setDashed(false);
        view.verticalLines.push_back(std::move(vertical));
    }
    while (view.ellipses.size() > count) {
        view.view->removeObject(view.ellipses.back().get());
        view.view->removeObject(view.horizontalLines.back().get());
        view.view->removeObject(view.verticalLines.back().get());
        view.ellipses.pop_back();
        view.horizontalLines.pop_back();
        view.verticalLines.pop_back();
    }

    if (update.fiducialSizes.size() != count) {
        KESTRION_LOG_ERROR("", "Size does not match!!!");
        return;
    }

    for (std::size_t i = 0; i < count; ++i) {
        const Eigen::Vector2d p = update.fiducials[i] - imageOffset;
        const Eigen::Vector2d s = update.fiducialSizes[i];
        const Eigen::Vector2d corner1 = p - s / 2.0;
        const Eigen::Vector2d corner2 = p + s / 2.0;
        view.ellipses[i]->setPoints({corner1.x(), corner1.y(), 0.0}, {corner2.x(), corner2.y(), 0.0});
        view.horizontalLines[i]->setPoints({p.x() - CrossArm * s.x(), p.y(), 0.0},
                                           {p.x() + CrossArm * s.x(), p.y(), 0.0});
        view.verticalLines[i]->setPoints({p.x(), p.y() - CrossArm * s.y(), 0.0},
                                         {p.x(), p.y() + CrossArm * s.y(), 0.0});
        view.ellipses[i]->setVisible(true);
        view.horizontalLines[i]->setVisible(true);
        view.verticalLines[i]->setVisible(true);
    }
}

} // namespace Kestrion
