#pragma once

#include <QDockWidget>

namespace Kestrion {
class WorkingVolumeView;
}

namespace Kestrion::Gui {

class GuiSession;

/// The "Working volume" dock of the desktop host: the 3D view of the newest tracking stream of
/// the session, following the session as algorithms come and go.
class WorkingVolumeDock : public QDockWidget {
    Q_OBJECT
public:
    WorkingVolumeDock(GuiSession& session, QWidget* parent = nullptr);

    WorkingVolumeView* view() const { return m_view; }
    /// Follows the session's newest tracking stream (none when it has none).
    void followSession();

private:
    GuiSession& m_session;
    WorkingVolumeView* m_view;
};

} // namespace Kestrion::Gui
