#pragma once

#include "host/lib/AlgorithmController.h"
#include "host/lib/Workspace.h"

#include <memory>
#include <string>
#include <vector>

class QWidget;

namespace Kestrion {
class FactoryRegistry;
class MainWindow;
} // namespace Kestrion

namespace Kestrion::Gui {

/// The algorithms of the desktop host (a Workspace) and the panels on them. Each algorithm gets
/// the controller its plugin's factories make; the host hands a panel controller the display
/// and the main window, shows it in the window, then calls init(). An algorithm whose
/// controller is not a panel (or that has none) is shown with a PropertiesController. GUI
/// thread only.
///
/// Controllers end before their algorithms, and both before the window: the owner of the
/// session destroys it before the main window and before unloading the plugins.
class GuiSession {
public:
    GuiSession(MainWindow& window, const FactoryRegistry& registry);
    ~GuiSession();
    GuiSession(const GuiSession&) = delete;
    GuiSession& operator=(const GuiSession&) = delete;

    /// Creates the algorithm (with its default configuration), computes it and shows its panel.
    /// Null, with an error logged (category "kestrion-gui"), when no plugin offers it; an
    /// algorithm whose computation fails is kept and shown (its panel may fix it).
    Algorithm* createAlgorithm(const std::string& identifier);

    /// Closes every panel and algorithm, then loads the workspace file (see Workspace::load).
    Workspace::LoadReport openWorkspace(const std::string& file);
    bool saveWorkspace(const std::string& file) const;
    /// Closes every panel, then every algorithm.
    void closeAll();

    const Workspace& workspace() const { return m_workspace; }
    /// The panels shown, in order of creation.
    std::vector<QWidget*> panels() const;
    /// The controller made for an algorithm by the factories, or null.
    AlgorithmController* controller(const Algorithm* algorithm) const;

private:
    struct Attached {
        Algorithm* algorithm = nullptr;
        /// What the controller factories made (may be null).
        std::unique_ptr<AlgorithmController> controller;
        /// The host's properties panel when the controller is not a panel.
        std::unique_ptr<AlgorithmController> fallback;
        QWidget* panel = nullptr;
    };
    void attach(Algorithm* algorithm, const std::string& identifier);

    MainWindow& m_window;
    const FactoryRegistry& m_registry;
    Workspace m_workspace;
    std::vector<Attached> m_attached;
};

} // namespace Kestrion::Gui
