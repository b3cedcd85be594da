#include "host/apps/kestrion-gui/WorkingVolumeDock.h"

#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/lib/trackingviews/WorkingVolumeView.h"

namespace Kestrion::Gui {

WorkingVolumeDock::WorkingVolumeDock(GuiSession& session, QWidget* parent)
    : QDockWidget(tr("Working volume"), parent)
    , m_session(session)
    , m_view(new WorkingVolumeView(this)) {
    setObjectName(QStringLiteral("WorkingVolumeDock"));
    setWidget(m_view);
    m_view->setMinimumSize(320, 240);
}

void WorkingVolumeDock::followSession() {
    const std::vector<TrackingStream*> streams = m_session.trackingStreams();
    TrackingStream* newest = streams.empty() ? nullptr : streams.back();
    if (newest != m_view->stream())
        m_view->setStream(newest);
}

} // namespace Kestrion::Gui
