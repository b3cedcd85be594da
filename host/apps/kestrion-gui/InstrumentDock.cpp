#include "host/apps/kestrion-gui/InstrumentDock.h"

#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/lib/trackingviews/InstrumentView.h"

namespace Kestrion::Gui {

InstrumentDock::InstrumentDock(GuiSession& session, QWidget* parent)
    : QDockWidget(tr("Instruments"), parent)
    , m_session(session)
    , m_view(new InstrumentView(this)) {
    setObjectName(QStringLiteral("InstrumentDock"));
    setWidget(m_view);
}

void InstrumentDock::followSession() {
    const std::vector<TrackingStream*> streams = m_session.trackingStreams();
    TrackingStream* newest = streams.empty() ? nullptr : streams.back();
    if (newest != m_view->stream())
        m_view->setStream(newest);
}

} // namespace Kestrion::Gui
