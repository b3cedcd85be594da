#include "host/lib/widgets/DisplayWidgetMulti.h"

#include "host/core/Log.h"
#include "host/lib/widgets/GlView.h"

#include <QGridLayout>

#include <algorithm>
#include <cmath>

namespace Kestrion {

DisplayWidgetMulti::DisplayWidgetMulti(QWidget* parent)
    : QWidget(parent)
    , m_grid(new QGridLayout(this)) {
    m_grid->setContentsMargins(0, 0, 0, 0);
    m_grid->setSpacing(2);
    setMinimumSize(160, 120);
    // The display area reads as one dark surface, also while it holds no view.
    QPalette dark = palette();
    dark.setColor(QPalette::Window, QColor(40, 40, 40));
    setPalette(dark);
    setAutoFillBackground(true);
}

DisplayWidgetMulti::~DisplayWidgetMulti() = default;

GlView* DisplayWidgetMulti::addView2D(bool fitToView, bool interactive) {
    if (viewCount() >= m_maxViews) {
        KESTRION_LOG_ERROR("DisplayWidgetMulti", "Cannot add a view: the display already holds "
                                                     << viewCount() << " views, the most it shows");
        return nullptr;
    }
    auto* view = new GlView(fitToView, interactive || m_zoomAndPanForAll, this);
    m_views.push_back(view);
    m_createdInteractive.push_back(interactive);
    arrange();
    emit viewsChanged();
    return view;
}

bool DisplayWidgetMulti::removeView(GlView* view) {
    auto it = std::find(m_views.begin(), m_views.end(), view);
    if (it == m_views.end())
        return false;
    m_createdInteractive.erase(m_createdInteractive.begin() + (it - m_views.begin()));
    m_views.erase(it);
    m_grid->removeWidget(view);
    delete view;
    arrange();
    emit viewsChanged();
    return true;
}

void DisplayWidgetMulti::removeAllViews() {
    while (!m_views.empty())
        removeView(m_views.back());
}

void DisplayWidgetMulti::setMaxViews(int maxViews) {
    m_maxViews = std::max(0, maxViews);
}

void DisplayWidgetMulti::setZoomAndPanForAllViews(bool enabled) {
    m_zoomAndPanForAll = enabled;
    for (std::size_t i = 0; i < m_views.size(); ++i)
        m_views[i]->setInteractive(enabled || m_createdInteractive[i]);
}

void DisplayWidgetMulti::arrange() {
    for (GlView* view : m_views)
        m_grid->removeWidget(view);
    const int count = viewCount();
    const int columns = std::max(1, static_cast<int>(std::ceil(std::sqrt(static_cast<double>(count)))));
    for (int i = 0; i < count; ++i)
        m_grid->addWidget(m_views[static_cast<std::size_t>(i)], i / columns, i % columns);
}

} // namespace Kestrion
