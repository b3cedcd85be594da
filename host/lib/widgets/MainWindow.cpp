#include "host/lib/widgets/MainWindow.h"

#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/LogAlertWidget.h"
#include "host/lib/widgets/LogWidget.h"
#include "host/lib/widgets/ProgressWidget.h"
#include "host/lib/widgets/QtHelpers.h"

#include <QDockWidget>
#include <QScrollArea>
#include <QScrollBar>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>

#include <algorithm>

namespace Kestrion {

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , m_display(new DisplayWidgetMulti)
    , m_progress(new ProgressWidget)
    , m_log(new LogWidget)
    , m_alert(new LogAlertWidget)
    , m_logDock(new QDockWidget(tr("Log"), this))
    , m_panels(new QTabWidget)
    , m_splitter(new QSplitter(Qt::Horizontal, this)) {
    QtHelpers::registerMetaTypes();
    setObjectName(QStringLiteral("MainWindow"));
    m_panels->setObjectName(QStringLiteral("ControllerPanels"));
    m_panels->setDocumentMode(true);
    m_panels->setMinimumWidth(280);
    m_splitter->addWidget(m_panels);
    m_splitter->addWidget(m_display);
    m_splitter->setStretchFactor(0, 0);
    m_splitter->setStretchFactor(1, 1);
    setCentralWidget(m_splitter);
    // Camera views are inspected closely: every view zooms with the wheel and pans when dragged.
    m_display->setZoomAndPanForAllViews(true);

    m_logDock->setObjectName(QStringLiteral("LogDock"));
    m_logDock->setWidget(m_log);
    addDockWidget(Qt::BottomDockWidgetArea, m_logDock);

    statusBar()->addWidget(m_progress, 1);
    statusBar()->addPermanentWidget(m_alert);
    connect(m_alert, &LogAlertWidget::showLogRequested, this, [this]() {
        m_logDock->show();
        m_logDock->raise();
        m_log->flush();
    });
    resize(1200, 800);
}

MainWindow::~MainWindow() = default;

Progress* MainWindow::progress() const {
    return m_progress;
}

void MainWindow::addControllerPanel(QWidget* panel, const QString& title) {
    if (!panel)
        return;
    // Long panels scroll; the scroll area follows the panel when it is deleted.
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(panel);
    // The tab goes at once; the scroll area (the dying panel's grandparent) once control is
    // back in the event loop.
    connect(panel, &QObject::destroyed, scroll, [this, scroll]() {
        m_panels->removeTab(m_panels->indexOf(scroll));
        scroll->deleteLater();
    });
    m_panels->setCurrentIndex(m_panels->addTab(scroll, title));
}

void MainWindow::fitControllerPanels() {
    int needed = m_panels->minimumWidth();
    for (int i = 0; i < m_panels->count(); ++i) {
        auto* scroll = qobject_cast<QScrollArea*>(m_panels->widget(i));
        if (scroll && scroll->widget())
            needed = std::max(needed, std::max(scroll->widget()->minimumSizeHint().width(),
                                               scroll->widget()->minimumWidth()) +
                                          scroll->verticalScrollBar()->sizeHint().width() +
                                          2 * scroll->frameWidth());
    }
    const QList<int> sizes = m_splitter->sizes();
    if (sizes.size() == 2 && sizes[0] < needed)
        m_splitter->setSizes({needed, std::max(0, sizes[0] + sizes[1] - needed)});
}

bool MainWindow::removeControllerPanel(QWidget* panel) {
    for (int i = 0; i < m_panels->count(); ++i) {
        auto* scroll = qobject_cast<QScrollArea*>(m_panels->widget(i));
        if (scroll && scroll->widget() == panel) {
            m_panels->removeTab(i);
            scroll->takeWidget();
            panel->setParent(nullptr);
            scroll->deleteLater();
            return true;
        }
    }
    return false;
}

} // namespace Kestrion
