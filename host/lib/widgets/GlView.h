#pragma once

#include <QImage>
#include <QPointF>
#include <QTransform>
#include <QWidget>

#include <cstdint>
#include <memory>
#include <vector>

namespace Kestrion {

class GlObject;
class SharedImage;
class SharedImageSet;

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

    /// Shows the first image of the set (see toQImage: 8-bit grey camera images as they are).
    /// The view reads it again when it repaints after the set or the image reported a change
    /// (SharedImageSet::setModified, SharedImage::setDirty): change the set, then call update().
    /// Null shows no image. Annotations use the image's pixel coordinates; without an image
    /// they use the view's.
    void setImageSet(std::shared_ptr<SharedImageSet> imageSet);
    const std::shared_ptr<SharedImageSet>& imageSet() const { return m_imageSet; }
    /// Shows a copy of a QImage instead of an image set; a null image shows none.
    void setImage(const QImage& image);
    /// The image shown now.
    const QImage& image() const;

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

    /// A line of text over the image, centred on a dark band (e.g. "no current image" while the
    /// image shown is an old one); empty: none.
    void setOverlayText(const QString& text);
    const QString& overlayText() const { return m_overlayText; }

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
    /// Converts the set's first image again when it changed since the last conversion.
    void refreshImage() const;

    std::shared_ptr<SharedImageSet> m_imageSet;
    // The image shown, converted from the set on the GUI thread when it changed.
    mutable QImage m_image;
    mutable const SharedImage* m_shownImage = nullptr;
    mutable std::uint64_t m_shownSetModification = 0;
    mutable std::uint64_t m_shownImageModification = 0;
    std::vector<GlObject*> m_objects;
    QString m_overlayText;
    bool m_fitToView;
    bool m_interactive;
    double m_zoom = 1.0;
    QPointF m_pan;
    bool m_dragging = false;
    QPointF m_dragStart;
};

} // namespace Kestrion
