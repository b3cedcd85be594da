#pragma once

#include "host/core/ProgressTask.h"
#include "host/lib/AlgorithmController.h"
#include "host/lib/Workspace.h"

#include <QFuture>
#include <QObject>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QWidget;

namespace Kestrion {
class FactoryRegistry;
class MainWindow;
class Properties;
class TrackingStream;
} // namespace Kestrion

namespace Kestrion::Gui {

/// The algorithms of the desktop host (a Workspace) and the panels on them. Each algorithm gets
/// the controller its plugin's factories make; the host hands a panel controller the display
/// and the main window, shows it in the window, then calls init(). An algorithm whose
/// controller is not a panel (or that has none) is shown with a PropertiesController.
///
/// Algorithms are computed one at a time, in order, on a thread of Qt's global pool, so that the
/// window stays responsive while, for example, a stream opens its device; the main window's
/// progress shows "Computing <identifier>". An algorithm's panel comes once its computation has
/// ended; until then nothing else touches the algorithm (saving and closing wait for it).
/// Everything else runs on the GUI thread.
///
/// Controllers end before their algorithms, and both before the window: the owner of the
/// session destroys it before the main window and before unloading the plugins.
class GuiSession {
public:
    GuiSession(MainWindow& window, const FactoryRegistry& registry);
    ~GuiSession();
    GuiSession(const GuiSession&) = delete;
    GuiSession& operator=(const GuiSession&) = delete;

    /// Creates the algorithm (with its default configuration, then `configuration` when given)
    /// and queues its computation; its panel shows once computed. Null, with an error logged
    /// (category "kestrion-gui"), when no plugin offers it; an algorithm whose computation fails
    /// is kept and shown (its panel may fix it).
    Algorithm* createAlgorithm(const std::string& identifier, const Properties* configuration = nullptr);

    /// Closes every panel and algorithm, then loads the workspace file (see Workspace::load) and
    /// queues the computation of its algorithms. The report covers reading, creating and
    /// configuring; computation failures are logged when they happen.
    Workspace::LoadReport openWorkspace(const std::string& file);
    /// Waits for the computations, then saves.
    bool saveWorkspace(const std::string& file);
    /// The workspace as save() would write it (waits for the computations): two equal texts are
    /// the same workspace.
    std::string workspaceText();
    /// Closes every panel, then every algorithm (after the running computation has ended).
    void closeAll();

    /// True while algorithms wait for or run their computation.
    bool isComputing() const;
    /// Runs the queued computations to their end and shows their panels (blocks the GUI thread).
    void waitForComputations();

    const Workspace& workspace() const { return m_workspace; }
    /// The panels shown, in order of creation.
    std::vector<QWidget*> panels() const;
    /// The controller made for an algorithm by the factories, or null.
    AlgorithmController* controller(const Algorithm* algorithm) const;

    /// The output streams of the shown algorithms that are tracking streams, in order of creation;
    /// none while the algorithms close.
    std::vector<TrackingStream*> trackingStreams() const;
    /// Called after an algorithm's panel is shown and before the algorithms close, so that views
    /// of their streams follow trackingStreams() and let go of a stream before it goes.
    void setAlgorithmsChangedHandler(std::function<void()> handler) { m_changed = std::move(handler); }

private:
    struct Attached {
        Algorithm* algorithm = nullptr;
        /// What the controller factories made (may be null).
        std::unique_ptr<AlgorithmController> controller;
        /// The host's properties panel when the controller is not a panel.
        std::unique_ptr<AlgorithmController> fallback;
        QWidget* panel = nullptr;
    };
    struct Computation {
        Algorithm* algorithm = nullptr;
        std::string identifier;
    };
    void attach(Algorithm* algorithm, const std::string& identifier);
    void queue(Algorithm* algorithm, const std::string& identifier);
    /// Starts the next queued computation when none runs.
    void computeNext();
    /// Ends the running computation (waiting for it), reports it and shows the panel.
    void finishComputation(unsigned generation);

    MainWindow& m_window;
    const FactoryRegistry& m_registry;
    Workspace m_workspace;
    std::vector<Attached> m_attached;
    std::deque<Computation> m_queue;
    /// The running computation (front of the queue): its failure text, empty on success.
    QFuture<std::string> m_running;
    std::optional<ProgressTask> m_runningTask;
    /// Counts started computations, so that the end of one that closeAll() already waited
    /// for is not handled again.
    unsigned m_generation = 0;
    bool m_runningActive = false;
    /// Parent and receiver context of the computations' watchers: none outlives the session.
    std::unique_ptr<QObject> m_watchers;
    std::function<void()> m_changed;
    bool m_closing = false;
};

} // namespace Kestrion::Gui
