#pragma once

#include <Eigen/Core>

#include <vector>

class QPainter;
class QPen;
class QTransform;

namespace Kestrion {

class GlView;

/// An annotation drawn over the image of one or more GlViews: points in image coordinates
/// (pixels; x to the right, y down, (0, 0) the top-left corner of the first pixel, so the
/// centre of pixel (i, j) is (i + 0.5, j + 0.5); z is ignored by 2D views), a colour, a line
/// width and a point size in screen pixels, and a visibility.
///
/// The views do not own their objects: whoever creates an object keeps it, adds it to views
/// with GlView::addObject and removes it with removeObject. Destroying an object removes it
/// from its views; destroying a view lets go of its objects. Every change repaints the views
/// showing the object. GUI thread only.
class GlObject {
public:
    GlObject();
    virtual ~GlObject();
    GlObject(const GlObject&) = delete;
    GlObject& operator=(const GlObject&) = delete;

    /// Red, green, blue and opacity, each from 0 to 1 (values outside are clamped when drawn).
    /// White by default.
    void setColor(double red, double green, double blue, double alpha = 1.0);
    void setColor(const Eigen::Vector3d& rgb) { setColor(rgb.x(), rgb.y(), rgb.z()); }
    void setColor(const Eigen::Vector3f& rgb) { setColor(rgb.x(), rgb.y(), rgb.z()); }
    void setColor(const Eigen::Vector4d& rgba) { setColor(rgba.x(), rgba.y(), rgba.z(), rgba.w()); }
    const Eigen::Vector4d& color() const { return m_color; }

    /// Width of the drawn lines in screen pixels (1 by default; 0 or less draws the thinnest line).
    void setLineWidth(double width);
    double lineWidth() const { return m_lineWidth; }
    /// Side of the square drawn on each defining point, in screen pixels; 0 (the default)
    /// draws no points.
    void setPointSize(double size);
    double pointSize() const { return m_pointSize; }

    /// Visible by default.
    void setVisible(bool visible);
    bool isVisible() const { return m_visible; }

    /// The views showing the object.
    const std::vector<GlView*>& views() const { return m_views; }

    /// Draws the object; `imageToView` maps image coordinates to the painter's.
    virtual void paint(QPainter& painter, const QTransform& imageToView) const = 0;

protected:
    /// Repaints the views showing the object; derived setters call it.
    void changed();
    /// The pen of the object's colour and line width.
    QPen pen() const;
    /// Draws the squares of the point size on the points (nothing for a point size of 0).
    void paintPoints(QPainter& painter, const QTransform& imageToView,
                     const std::vector<Eigen::Vector3d>& points) const;

private:
    friend class GlView;
    Eigen::Vector4d m_color{1.0, 1.0, 1.0, 1.0};
    double m_lineWidth = 1.0;
    double m_pointSize = 0.0;
    bool m_visible = true;
    std::vector<GlView*> m_views;
};

} // namespace Kestrion
