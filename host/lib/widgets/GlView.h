#pragma once

#include <QImage>
#include <QPointF>
#include <QTransform>
#include <QWidget>

#include <vector>

namespace Kestrion {

class GlObject;

/// A 2D view: an image, scaled to fit the view (keeping its aspect ratio, centred) or shown at
/// one screen pixel per image pixel, with annotations (GlObject: GlEllipse, GlLine) drawn over
/// it in image coordinates. Painted with QPainter, so it works on every Qt platform, offscreen
/// included; renderImage() paints it into a QImage (for tests and screenshots).
///
/// An interactive view also zooms with the mouse wheel (around the cursor), pans with the left
/// button dragged, and goes back to the whole image on a double click.
///
/// Views usually live in a DisplayWidgetMulti, which creates and deletes them. GUI thread only.
class GlView : public QWidget {
    Q_OBJECT
public:
    explicit GlView(bool fitToView = true, bool interactive = false, QWidget* parent = nullptr);
    /// Lets go of the objects still added (they are not deleted).
    ~GlView() override;

    /// Shows a copy of the image (an 8-bit grey camera image is a QImage::Format_Grayscale8);
    /// a null image shows none. Annotations then use the image's pixel coordinates; without
    /// an image they use the view's.
    void setImage(const QImage& image);
    const QImage& image() const { return m_image; }

    /// Adds an annotation, drawn after those added before; not owned. Adding it again does
    /// nothing. Null is ignored.
    void addObject(GlObject* object);
    /// Takes the annotation out of the view; false when it was not in it.
    bool removeObject(GlObject* object);
    void removeAllObjects();
    const std::vector<GlObject*>& objects() const { return m_objects; }

    bool fitToView() const { return m_fitToView; }
    void setFitToView(bool fit);
    bool isInteractive() const { return m_interactive; }
    void setInteractive(bool interactive);
    /// The user's zoom on top of the fitted image (1 = whole image) and the pan in screen pixels.
    double zoom() const { return m_zoom; }
    QPointF pan() const { return m_pan; }
    /// Back to the whole image.
    void resetZoom();

    /// Maps image coordinates to the coordinates of a view of the given size (or of this view).
    QTransform imageToView(const QSizeF& viewSize) const;
    QTransform imageToView() const { return imageToView(QSizeF(size())); }

    /// Paints the view as it would appear at the given size: background, image, visible annotations.
    void paintView(QPainter& painter, const QSize& size) const;
    /// The view painted into a new RGB image of the given size (of the view's size by default).
    QImage renderImage(const QSize& size = QSize()) const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    QImage m_image;
    std::vector<GlObject*> m_objects;
    bool m_fitToView;
    bool m_interactive;
    double m_zoom = 1.0;
    QPointF m_pan;
    bool m_dragging = false;
    QPointF m_dragStart;
};

} // namespace Kestrion
