#include "host/apps/kestrion-gui/HealthDock.h"

#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/lib/trackingviews/StreamHealthView.h"
#include "host/stream/TrackingStream.h"

#include <QLabel>

namespace Kestrion::Gui {

HealthDock::HealthDock(GuiSession& session, QWidget* parent)
    : QDockWidget(tr("Camera health"), parent)
    , m_session(session)
    , m_view(new StreamHealthView(this))
    , m_status(new QLabel) {
    setObjectName(QStringLiteral("HealthDock"));
    setWidget(m_view);
    m_status->setObjectName(QStringLiteral("StreamHealthStatus"));
    connect(m_view, &StreamHealthView::summaryChanged, m_status,
            [this](const QString& summary, bool alarming) {
                m_status->setText(summary);
                m_status->setStyleSheet(
                    alarming ? QStringLiteral("color: white; background: #b00000; font-weight: bold; "
                                              "padding: 1px 6px")
                             : QStringLiteral("padding: 1px 6px"));
            });
}

void HealthDock::followSession() {
    const std::vector<TrackingStream*> streams = m_session.trackingStreams();
    const Stream* newest = streams.empty() ? nullptr : streams.back();
    if (newest != m_view->stream())
        m_view->setStream(newest);
}

} // namespace Kestrion::Gui
