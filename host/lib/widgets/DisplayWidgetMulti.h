#pragma once

#include <QWidget>

#include <vector>

class QGridLayout;

namespace Kestrion {

class GlView;

/// The display area of the desktop host: a grid of views (two views side by side, four in two
/// rows, ...). Views are created and deleted by the display; whoever adds one keeps the
/// pointer until it removes the view again. GUI thread only.
class DisplayWidgetMulti : public QWidget {
    Q_OBJECT
public:
    explicit DisplayWidgetMulti(QWidget* parent = nullptr);
    ~DisplayWidgetMulti() override;

    /// A new 2D view at the end of the grid, owned by the display. `fitToView`: the image is
    /// scaled to fit the view (else one screen pixel per image pixel); `interactive`: the user
    /// may zoom and pan (see GlView). Null, with an error logged (category
    /// "DisplayWidgetMulti"), when the display already holds maxViews() views.
    GlView* addView2D(bool fitToView = true, bool interactive = false);
    /// Deletes a view of this display; false (and nothing deleted) for any other pointer.
    bool removeView(GlView* view);
    void removeAllViews();

    const std::vector<GlView*>& views() const { return m_views; }
    int viewCount() const { return static_cast<int>(m_views.size()); }

    /// The most views the display holds at once (16 by default; at least 0).
    void setMaxViews(int maxViews);
    int maxViews() const { return m_maxViews; }

    /// Lets the user zoom and pan every view of the display, also those created as not
    /// interactive (a host where camera views are inspected closely); false leaves each view as
    /// it was created. Applies to the views there and to those added later.
    void setZoomAndPanForAllViews(bool enabled);
    bool zoomAndPanForAllViews() const { return m_zoomAndPanForAll; }

signals:
    void viewsChanged();

private:
    void arrange();

    QGridLayout* m_grid;
    std::vector<GlView*> m_views;
    int m_maxViews = 16;
    bool m_zoomAndPanForAll = false;
    std::vector<bool> m_createdInteractive; // per view, what its creator asked for
};

} // namespace Kestrion
