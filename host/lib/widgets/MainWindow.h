#pragma once

#include <QMainWindow>

#include <string>

class QDockWidget;
class QSplitter;
class QTabWidget;

namespace Kestrion {

class DisplayWidgetMulti;
class LogAlertWidget;
class LogWidget;
class Progress;
class ProgressWidget;

/// The desktop host's main window: controller panels in tabs on the left, the multi-view
/// display in the middle (every view zooms and pans with the mouse), the log in a dock at the bottom and the
/// progress of long tasks in the status bar. Plugins reach it through their controllers
/// (StreamControllerBase::mainWindow) to report progress (progress()) and show views (displayWidget()). GUI
/// thread only, except progress(), whose tasks may be updated from any thread.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    DisplayWidgetMulti* displayWidget() const { return m_display; }
    /// Where algorithms report long work: a row with a progress bar and a Cancel button per task.
    Progress* progress() const;
    ProgressWidget* progressWidget() const { return m_progress; }
    LogWidget* logWidget() const { return m_log; }
    QDockWidget* logDock() const { return m_logDock; }
    /// The warnings and errors not read yet, in the status bar; a click shows the log.
    LogAlertWidget* logAlert() const { return m_alert; }

    /// Shows a controller panel in a tab of its own, made current. The window becomes the
    /// panel's Qt parent; whoever owns the panel (the host keeps controllers) deletes it, which
    /// also removes the tab.
    void addControllerPanel(QWidget* panel, const QString& title);
    /// Widens the panel column when a panel (complete once its controller is initialised) does
    /// not fit in it, so that panels show whole rather than behind a horizontal scroll bar.
    void fitControllerPanels();
    /// Takes a panel out of the window without deleting it; false when it is not shown.
    bool removeControllerPanel(QWidget* panel);
    QTabWidget* panelArea() const { return m_panels; }

    /// The workspace file the window shows ("" for a new workspace), set by the host as it
    /// opens and saves them; panels propose its folder for the files they create.
    void setWorkspaceFile(const std::string& file) { m_workspaceFile = file; }
    const std::string& workspaceFile() const { return m_workspaceFile; }

private:
    DisplayWidgetMulti* m_display;
    ProgressWidget* m_progress;
    LogWidget* m_log;
    LogAlertWidget* m_alert;
    QDockWidget* m_logDock;
    QTabWidget* m_panels;
    QSplitter* m_splitter;
    std::string m_workspaceFile;
};

} // namespace Kestrion
