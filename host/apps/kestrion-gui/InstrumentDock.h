#pragma once

#include <QDockWidget>

namespace Kestrion {
class InstrumentView;
}

namespace Kestrion::Gui {

class GuiSession;

/// The "Instruments" dock of the desktop host: the instrument view of the newest tracking stream
/// of the session, following the session as algorithms come and go.
class InstrumentDock : public QDockWidget {
    Q_OBJECT
public:
    InstrumentDock(GuiSession& session, QWidget* parent = nullptr);

    InstrumentView* view() const { return m_view; }
    /// Follows the session's newest tracking stream (none when it has none).
    void followSession();

private:
    GuiSession& m_session;
    InstrumentView* m_view;
};

} // namespace Kestrion::Gui
