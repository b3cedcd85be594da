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
class InstrumentDock;
class WorkingVolumeDock;

/// The desktop host's window: the main window with the algorithm list in a dock on the left
/// (double click or "Create" makes the algorithm and shows its panel) and the File menu for
/// workspaces (New, Open..., Save, Save As..., Quit). Workspace files are chosen with the
/// host's file dialog helpers (QtHelpers), under the remembered key "Workspace".
class HostWindow : public MainWindow {
    Q_OBJECT
public:
    explicit HostWindow(const FactoryRegistry& registry, QWidget* parent = nullptr);
    /// Closes the panels and algorithms before the window's widgets go.
    ~HostWindow() override;

    AlgorithmTree* algorithmTree() const { return m_tree; }
    InstrumentDock* instrumentDock() const { return m_instrumentDock; }
    WorkingVolumeDock* workingVolumeDock() const { return m_volumeDock; }
    GuiSession& session() { return *m_session; }
    /// The workspace file opened or saved last ("" for a new workspace).
    const std::string& workspaceFile() const { return m_workspaceFile; }

    /// Lists the registry's algorithms again (after plugins were loaded).
    void refreshAlgorithms();
    bool openWorkspace(const std::string& file);
    bool saveWorkspace(const std::string& file);

public slots:
    void createSelectedAlgorithm();
    void newWorkspace();
    /// Asks for a file, then opens it.
    void openWorkspaceDialog();
    /// Saves to the current file, or asks for one when there is none.
    void saveWorkspaceToCurrentFile();
    void saveWorkspaceDialog();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void updateTitle();

    const FactoryRegistry& m_registry;
    std::unique_ptr<GuiSession> m_session;
    AlgorithmTree* m_tree;
    QDockWidget* m_treeDock;
    InstrumentDock* m_instrumentDock;
    WorkingVolumeDock* m_volumeDock;
    std::string m_workspaceFile;
};

} // namespace Kestrion::Gui
