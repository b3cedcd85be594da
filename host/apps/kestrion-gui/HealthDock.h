#pragma once

#include <QDockWidget>

class QLabel;

namespace Kestrion {
class StreamHealthView;
}

namespace Kestrion::Gui {

class GuiSession;

/// The "Camera health" dock of the desktop host: the health of the session's newest tracking
/// stream (StreamHealthView), and its one-line summary in the window's status bar, on red while
/// the camera does not deliver, so that a lost camera is seen whatever docks are open.
class HealthDock : public QDockWidget {
    Q_OBJECT
public:
    HealthDock(GuiSession& session, QWidget* parent = nullptr);

    StreamHealthView* view() const { return m_view; }
    /// The status bar's label (the window adds it).
    QLabel* statusLabel() const { return m_status; }
    /// Follows the session's newest tracking stream (none when it has none).
    void followSession();

private:
    GuiSession& m_session;
    StreamHealthView* m_view;
    QLabel* m_status;
};

} // namespace Kestrion::Gui
