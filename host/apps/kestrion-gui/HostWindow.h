#pragma once

#include "host/lib/widgets/MainWindow.h"

#include <memory>
#include <string>

class QDockWidget;

namespace Kestrion {
class FactoryRegistry;
}

namespace Kestrion::Gui {

class AlgorithmTree;
class GuiSession;
class HealthDock;
class InstrumentDock;
class WorkingVolumeDock;

/// The desktop host's window: the main window with the algorithm list in a dock on the left
/// (double click or "Create" makes the algorithm and shows its panel) and the File menu for
/// workspaces (New, Open..., Save, Save As..., Quit). Workspace files are chosen with the
/// host's file dialog helpers (QtHelpers), under the remembered key "Workspace", starting in the
/// open workspace's folder. Quitting, closing the window, a new workspace and opening another
/// one first ask to save a changed workspace (SaveChangesQuestion: Save, Discard, Cancel).
class HostWindow : public MainWindow {
    Q_OBJECT
public:
    explicit HostWindow(const FactoryRegistry& registry, QWidget* parent = nullptr);
    /// Closes the panels and algorithms before the window's widgets go.
    ~HostWindow() override;

    AlgorithmTree* algorithmTree() const { return m_tree; }
    InstrumentDock* instrumentDock() const { return m_instrumentDock; }
    WorkingVolumeDock* workingVolumeDock() const { return m_volumeDock; }
    HealthDock* healthDock() const { return m_healthDock; }
    GuiSession& session() { return *m_session; }
    /// The workspace file opened or saved last ("" for a new workspace).
    const std::string& workspaceFile() const { return m_workspaceFile; }

    /// Lists the registry's algorithms again (after plugins were loaded).
    void refreshAlgorithms();
    bool openWorkspace(const std::string& file);
    bool saveWorkspace(const std::string& file);
    /// Whether the workspace differs from the one opened or saved last (an empty one for a new
    /// workspace). Waits for the running computations.
    bool isWorkspaceChanged();
    /// Asks to save a changed workspace before `action` ("quitting"); true when the action may go
    /// on (saved, discarded or unchanged), false when the user cancelled or the save failed.
    bool saveChangesBefore(const std::string& action);
    /// Whether a changed workspace is offered for saving (default true); a window nobody sits in
    /// front of (a screenshot run) closes without asking.
    void setAskToSaveChanges(bool ask) { m_askToSave = ask; }

public slots:
    void createSelectedAlgorithm();
    void newWorkspace();
    /// Asks for a file, then opens it.
    void openWorkspaceDialog();
    /// Saves to the current file, or asks for one when there is none; false when not saved.
    bool saveWorkspaceToCurrentFile();
    /// Asks for a file (proposing the open one), then saves; false when not saved.
    bool saveWorkspaceDialog();
    /// Asks for a recording (starting in the workspace's folder), then replays it as the camera
    /// (RecordingReplay); false when none was chosen or it cannot be played.
    bool openRecordingDialog();

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void updateTitle();
    /// The workspace as it is now is the saved one (after its computations, when they run).
    void noteSaved();

    const FactoryRegistry& m_registry;
    std::unique_ptr<GuiSession> m_session;
    AlgorithmTree* m_tree;
    QDockWidget* m_treeDock;
    InstrumentDock* m_instrumentDock;
    WorkingVolumeDock* m_volumeDock;
    HealthDock* m_healthDock;
    std::string m_workspaceFile;
    /// The workspace as opened or saved last (GuiSession::workspaceText), taken once the
    /// algorithms opened have computed.
    std::string m_savedText;
    bool m_savedTextPending = false;
    bool m_askToSave = true;
    bool m_docksSized = false;
};

} // namespace Kestrion::Gui
