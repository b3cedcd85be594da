#include "host/lib/widgets/GlView.h"

#include "host/core/SharedImageSet.h"
#include "host/lib/widgets/GlObject.h"
#include "host/lib/widgets/ImageConversion.h"

#include <QFont>
#include <QFontMetrics>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace Kestrion {

namespace {

const QColor Background(24, 24, 24);
constexpr double MinZoom = 0.1;
constexpr double MaxZoom = 64.0;

} // namespace

GlView::GlView(bool fitToView, bool interactive, QWidget* parent)
    : QWidget(parent)
    , m_fitToView(fitToView)
    , m_interactive(interactive) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(64, 48);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

GlView::~GlView() {
    removeAllObjects();
}

void GlView::setImageSet(std::shared_ptr<SharedImageSet> imageSet) {
    m_imageSet = std::move(imageSet);
    m_image = QImage();
    m_shownImage = nullptr;
    m_shownSetModification = 0;
    m_shownImageModification = 0;
    refreshImage();
    update();
}

void GlView::setImage(const QImage& image) {
    m_imageSet.reset();
    m_image = image;
    update();
}

const QImage& GlView::image() const {
    refreshImage();
    return m_image;
}

void GlView::refreshImage() const {
    if (!m_imageSet)
        return;
    const std::shared_ptr<SharedImage> first = m_imageSet->get(0);
    const std::uint64_t setModification = m_imageSet->modificationCount();
    const std::uint64_t imageModification = first ? first->modificationCount() : 0;
    if (first.get() == m_shownImage && setModification == m_shownSetModification &&
        imageModification == m_shownImageModification && (!first || !m_image.isNull()))
        return;
    m_image = first ? toQImage(*first->image()) : QImage();
    m_shownImage = first.get();
    m_shownSetModification = setModification;
    m_shownImageModification = imageModification;
}

void GlView::addObject(GlObject* object) {
    if (!object || std::find(m_objects.begin(), m_objects.end(), object) != m_objects.end())
        return;
    m_objects.push_back(object);
    object->m_views.push_back(this);
    update();
}

bool GlView::removeObject(GlObject* object) {
    auto it = std::find(m_objects.begin(), m_objects.end(), object);
    if (it == m_objects.end())
        return false;
    m_objects.erase(it);
    auto& views = object->m_views;
    views.erase(std::remove(views.begin(), views.end(), this), views.end());
    update();
    return true;
}

void GlView::removeAllObjects() {
    while (!m_objects.empty())
        removeObject(m_objects.back());
}

void GlView::setFitToView(bool fit) {
    m_fitToView = fit;
    update();
}

void GlView::setInteractive(bool interactive) {
    m_interactive = interactive;
    if (!interactive)
        resetZoom();
}

void GlView::resetZoom() {
    m_zoom = 1.0;
    m_pan = QPointF();
    update();
}

QTransform GlView::imageToView(const QSizeF& viewSize) const {
    refreshImage();
    QTransform base;
    if (!m_image.isNull()) {
        const double width = m_image.width();
        const double height = m_image.height();
        const double scale =
            m_fitToView ? std::min(viewSize.width() / width, viewSize.height() / height) : 1.0;
        base.translate((viewSize.width() - width * scale) / 2.0, (viewSize.height() - height * scale) / 2.0);
        base.scale(scale, scale);
    }
    QTransform user;
    user.translate(m_pan.x(), m_pan.y());
    user.scale(m_zoom, m_zoom);
    return base * user;
}

void GlView::paintView(QPainter& painter, const QSize& size) const {
    refreshImage();
    painter.fillRect(QRect(QPoint(0, 0), size), Background);
    const QTransform toView = imageToView(QSizeF(size));
    if (!m_image.isNull()) {
        const QRectF target = toView.mapRect(QRectF(0, 0, m_image.width(), m_image.height()));
        // Enlarged camera pixels stay sharp; reduced images are smoothed.
        painter.setRenderHint(QPainter::SmoothPixmapTransform, target.width() < m_image.width());
        painter.drawImage(target, m_image);
    }
    painter.setRenderHint(QPainter::Antialiasing, true);
    for (const GlObject* object : m_objects)
        if (object->isVisible()) {
            painter.save();
            object->paint(painter, toView);
            painter.restore();
        }
    if (!m_overlayText.isEmpty()) {
        QFont font = painter.font();
        font.setBold(true);
        font.setPointSizeF(font.pointSizeF() * 1.5);
        painter.setFont(font);
        const int band = QFontMetrics(font).height() * 2;
        const QRect bar(0, (size.height() - band) / 2, size.width(), band);
        painter.fillRect(bar, QColor(0, 0, 0, 190));
        painter.setPen(QColor(255, 200, 80));
        painter.drawText(bar, Qt::AlignCenter, m_overlayText);
    }
}

void GlView::setOverlayText(const QString& text) {
    if (text == m_overlayText)
        return;
    m_overlayText = text;
    update();
}

QImage GlView::renderImage(const QSize& size) const {
    const QSize imageSize = size.isValid() ? size : this->size();
    QImage result(imageSize, QImage::Format_RGB32);
    QPainter painter(&result);
    paintView(painter, imageSize);
    return result;
}

QSize GlView::sizeHint() const {
    refreshImage();
    return m_image.isNull() ? QSize(320, 240) : m_image.size().boundedTo(QSize(640, 480));
}

void GlView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    paintView(painter, size());
}

void GlView::wheelEvent(QWheelEvent* event) {
    if (!m_interactive) {
        QWidget::wheelEvent(event);
        return;
    }
    const double steps = event->angleDelta().y() / 120.0;
    const double zoom = std::clamp(m_zoom * std::pow(1.25, steps), MinZoom, MaxZoom);
    // Keep the point under the cursor where it is: cursor = pan + zoom * q for the same q.
    const QPointF cursor = event->position();
    const QPointF q = (cursor - m_pan) / m_zoom;
    m_pan = cursor - q * zoom;
    m_zoom = zoom;
    update();
    event->accept();
}

void GlView::mousePressEvent(QMouseEvent* event) {
    if (m_interactive && event->button() == Qt::LeftButton) {
        m_dragging = true;
        m_dragStart = event->localPos() - m_pan;
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

void GlView::mouseMoveEvent(QMouseEvent* event) {
    if (m_dragging) {
        m_pan = event->localPos() - m_dragStart;
        update();
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void GlView::mouseReleaseEvent(QMouseEvent* event) {
    if (m_dragging && event->button() == Qt::LeftButton) {
        m_dragging = false;
        event->accept();
        return;
    }
    QWidget::mouseReleaseEvent(event);
}

void GlView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (m_interactive) {
        resetZoom();
        event->accept();
        return;
    }
    QWidget::mouseDoubleClickEvent(event);
}

} // namespace Kestrion
