#include "host/apps/kestrion-gui/HostWindow.h"

#include "host/apps/kestrion-gui/AlgorithmTree.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/HealthDock.h"
#include "host/apps/kestrion-gui/IgtlServing.h"
#include "host/apps/kestrion-gui/InstrumentDock.h"
#include "host/apps/kestrion-gui/RecordingReplay.h"
#include "host/apps/kestrion-gui/Ros2Publishing.h"
#include "host/apps/kestrion-gui/WorkingVolumeDock.h"
#include "host/core/Log.h"
#include "host/lib/widgets/LogAlertWidget.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/lib/widgets/SaveChangesQuestion.h"

#include <QAction>
#include <QCloseEvent>
#include <QDockWidget>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QStatusBar>
#include <QVBoxLayout>

namespace Kestrion::Gui {

namespace {
const char* const Category = "kestrion-gui";
const char* const WorkspaceFilter = "Workspaces (*.kws);;All files (*)";
} // namespace

HostWindow::HostWindow(const FactoryRegistry& registry, QWidget* parent)
    : MainWindow(parent)
    , m_registry(registry)
    , m_session(std::make_unique<GuiSession>(*this, registry))
    , m_tree(new AlgorithmTree)
    , m_treeDock(new QDockWidget(tr("Algorithms"), this))
    , m_instrumentDock(new InstrumentDock(*m_session, this))
    , m_volumeDock(new WorkingVolumeDock(*m_session, this))
    , m_healthDock(new HealthDock(*m_session, this)) {
    auto* treePanel = new QWidget;
    auto* layout = new QVBoxLayout(treePanel);
    layout->setContentsMargins(2, 2, 2, 2);
    layout->addWidget(m_tree);
    auto* create = new QPushButton(tr("Create"), treePanel);
    create->setObjectName(QStringLiteral("CreateAlgorithm"));
    layout->addWidget(create);
    m_treeDock->setObjectName(QStringLiteral("AlgorithmDock"));
    m_treeDock->setWidget(treePanel);
    addDockWidget(Qt::LeftDockWidgetArea, m_treeDock);
    connect(create, &QPushButton::clicked, this, &HostWindow::createSelectedAlgorithm);
    connect(m_tree, &AlgorithmTree::algorithmActivated, this,
            [this](const QString& identifier) { m_session->createAlgorithm(identifier.toStdString()); });

    // The instruments take the width the table needs; the log shares a place with the 3D view
    // (the status bar's alert brings it to the front).
    addDockWidget(Qt::BottomDockWidgetArea, m_instrumentDock);
    splitDockWidget(logDock(), m_instrumentDock, Qt::Horizontal);
    addDockWidget(Qt::BottomDockWidgetArea, m_volumeDock);
    splitDockWidget(m_instrumentDock, m_volumeDock, Qt::Horizontal);
    tabifyDockWidget(m_volumeDock, logDock());
    m_volumeDock->raise();
    addDockWidget(Qt::LeftDockWidgetArea, m_healthDock);
    splitDockWidget(m_treeDock, m_healthDock, Qt::Vertical);
    statusBar()->addPermanentWidget(m_healthDock->statusLabel());
    m_session->setAlgorithmsChangedHandler([this]() {
        m_instrumentDock->followSession();
        m_volumeDock->followSession();
        m_healthDock->followSession();
        IgtlServing::followSession(*m_session);
        Ros2Publishing::followSession(*m_session);
        if (m_savedTextPending && !m_session->isComputing()) {
            m_savedTextPending = false;
            m_savedText = m_session->workspaceText();
        }
    });

    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&New Workspace"), this, &HostWindow::newWorkspace, QKeySequence::New);
    file->addAction(tr("&Open Workspace..."), this, &HostWindow::openWorkspaceDialog, QKeySequence::Open);
    file->addAction(tr("&Save Workspace"), this, &HostWindow::saveWorkspaceToCurrentFile, QKeySequence::Save);
    file->addAction(tr("Save Workspace &As..."), this, &HostWindow::saveWorkspaceDialog,
                    QKeySequence::SaveAs);
    file->addAction(tr("Open &Recording..."), this, &HostWindow::openRecordingDialog);
    file->addSeparator();
    file->addAction(tr("&Quit"), this, &QWidget::close, QKeySequence::Quit);
    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addAction(m_treeDock->toggleViewAction());
    view->addAction(logDock()->toggleViewAction());
    view->addAction(m_instrumentDock->toggleViewAction());
    view->addAction(m_volumeDock->toggleViewAction());
    view->addAction(m_healthDock->toggleViewAction());

    refreshAlgorithms();
    updateTitle();
    noteSaved();
}

HostWindow::~HostWindow() {
    m_session->closeAll(); // the views let go of the streams while the docks still exist
    m_session.reset();
}

void HostWindow::refreshAlgorithms() {
    m_tree->populate(m_registry);
}

void HostWindow::createSelectedAlgorithm() {
    const std::string identifier = m_tree->selectedAlgorithm();
    if (!identifier.empty())
        m_session->createAlgorithm(identifier);
}

void HostWindow::newWorkspace() {
    if (!saveChangesBefore("starting a new workspace"))
        return;
    m_session->closeAll();
    m_workspaceFile.clear();
    updateTitle();
    noteSaved();
}

bool HostWindow::openWorkspace(const std::string& file) {
    const Workspace::LoadReport report = m_session->openWorkspace(file);
    m_workspaceFile = report.read ? file : std::string();
    updateTitle();
    noteSaved();
    statusBar()->showMessage(
        report.ok() ? tr("Opened %1").arg(QString::fromStdString(file))
                    : tr("Opened %1 with problems (see the log)").arg(QString::fromStdString(file)),
        5000);
    return report.ok();
}

bool HostWindow::saveWorkspace(const std::string& file) {
    if (!m_session->saveWorkspace(file))
        return false;
    m_workspaceFile = file;
    KESTRION_LOG_INFO(Category, "Workspace saved to " << file);
    logAlert()->resolve(QStringLiteral("Workspace")); // an earlier failed save is no longer true
    updateTitle();
    noteSaved();
    return true;
}

void HostWindow::noteSaved() {
    m_savedTextPending = m_session->isComputing();
    if (!m_savedTextPending)
        m_savedText = m_session->workspaceText();
}

bool HostWindow::isWorkspaceChanged() {
    const std::string now = m_session->workspaceText(); // the pending saved text is taken meanwhile
    return now != m_savedText;
}

bool HostWindow::saveChangesBefore(const std::string& action) {
    if (!m_askToSave || !isWorkspaceChanged())
        return true;
    const std::string what =
        m_workspaceFile.empty() ? "the new workspace" : "the workspace " + m_workspaceFile;
    switch (SaveChangesQuestion::ask(this, what, action)) {
    case SaveChangesQuestion::Answer::Save:
        return saveWorkspaceToCurrentFile();
    case SaveChangesQuestion::Answer::Discard:
        return true;
    case SaveChangesQuestion::Answer::Cancel:
        break;
    }
    return false;
}

void HostWindow::openWorkspaceDialog() {
    if (!saveChangesBefore("opening another workspace"))
        return;
    const std::string folder =
        m_workspaceFile.empty()
            ? std::string()
            : QFileInfo(QString::fromStdString(m_workspaceFile)).absolutePath().toStdString();
    const std::string file =
        QtHelpers::getOpenFilename("Open workspace", WorkspaceFilter, "Workspace", folder);
    if (!file.empty())
        openWorkspace(file);
}

bool HostWindow::saveWorkspaceToCurrentFile() {
    if (m_workspaceFile.empty())
        return saveWorkspaceDialog();
    return saveWorkspace(m_workspaceFile);
}

bool HostWindow::saveWorkspaceDialog() {
    const std::string file = QtHelpers::getSaveFilename(
        "Save workspace", "kws", m_workspaceFile.empty() ? "workspace" : m_workspaceFile);
    return !file.empty() && saveWorkspace(file);
}

void HostWindow::showEvent(QShowEvent* event) {
    MainWindow::showEvent(event);
    if (m_docksSized)
        return;
    // Once the window has its size: the instruments get three fifths of the bottom.
    m_docksSized = true;
    resizeDocks({m_instrumentDock, m_volumeDock}, {width() * 3 / 5, width() * 2 / 5}, Qt::Horizontal);
}

void HostWindow::closeEvent(QCloseEvent* event) {
    if (!saveChangesBefore("quitting")) {
        event->ignore();
        return;
    }
    // Streams stop and panels go while the window and its display still exist.
    m_session->closeAll();
    event->accept();
}

bool HostWindow::openRecordingDialog() {
    const std::string file = QtHelpers::getOpenFilename(
        "Open a recording to replay", "Recordings (*.krec *.krec.part);;All files (*)", "Recording",
        m_workspaceFile.empty()
            ? std::string()
            : QFileInfo(QString::fromStdString(m_workspaceFile)).absolutePath().toStdString());
    if (file.empty())
        return false;
    return RecordingReplay::open(*m_session, file);
}

void HostWindow::updateTitle() {
    setWorkspaceFile(m_workspaceFile); // for the panels' file dialogs
    setWindowTitle(m_workspaceFile.empty()
                       ? tr("Kestrion")
                       : tr("Kestrion - %1").arg(QString::fromStdString(m_workspaceFile)));
}

} // namespace Kestrion::Gui
