#include "host/apps/kestrion-gui/GuiSession.h"

#include "host/core/Log.h"
#include "host/core/Progress.h"
#include "host/core/PropertiesXml.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/widgets/AlgorithmControllerWidget.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/PropertiesController.h"
#include "host/stream/StreamAlgorithm.h"
#include "host/stream/TrackingStream.h"

#include <QFutureWatcher>
#include <QWidget>
#include <QtConcurrent/QtConcurrentRun>

#include <exception>

namespace Kestrion::Gui {

namespace {
const char* const Category = "kestrion-gui";
}

GuiSession::GuiSession(MainWindow& window, const FactoryRegistry& registry)
    : m_window(window)
    , m_registry(registry)
    , m_watchers(std::make_unique<QObject>()) {}

GuiSession::~GuiSession() {
    closeAll();
}

Algorithm* GuiSession::createAlgorithm(const std::string& identifier, const Properties* configuration) {
    std::unique_ptr<Algorithm> algorithm = m_registry.createAlgorithm(identifier);
    if (!algorithm) {
        KESTRION_LOG_ERROR(Category, "Cannot create algorithm \"" << identifier << "\"");
        return nullptr;
    }
    if (configuration)
        algorithm->configure(configuration); // before its computation, which is its own thread's
    Algorithm* created = algorithm.get();
    m_workspace.add(identifier, std::move(algorithm));
    queue(created, identifier);
    return created;
}

void GuiSession::queue(Algorithm* algorithm, const std::string& identifier) {
    m_queue.push_back({algorithm, identifier});
    computeNext();
}

void GuiSession::computeNext() {
    if (m_runningActive || m_queue.empty())
        return;
    const Computation next = m_queue.front();
    m_runningTask.emplace(m_window.progress()->addTask(0, "Computing " + next.identifier));
    // The pool thread is the only one touching the algorithm until the computation ends: the
    // panel comes afterwards, and saving and closing wait for it.
    m_running = QtConcurrent::run([algorithm = next.algorithm]() -> std::string {
        try {
            algorithm->compute();
            if (algorithm->status() == Algorithm::Success)
                return std::string();
            const std::string reason = algorithm->failureReason();
            return reason.empty() ? "status " + std::to_string(algorithm->status()) : reason;
        } catch (const std::exception& e) {
            return e.what();
        } catch (...) {
            return "unknown exception";
        }
    });
    m_runningActive = true;
    const unsigned generation = ++m_generation;
    auto* watcher = new QFutureWatcher<std::string>(m_watchers.get());
    QObject::connect(watcher, &QFutureWatcher<std::string>::finished, m_watchers.get(),
                     [this, watcher, generation]() {
                         watcher->deleteLater();
                         finishComputation(generation);
                     });
    watcher->setFuture(m_running);
}

void GuiSession::finishComputation(unsigned generation) {
    if (!m_runningActive || generation != m_generation)
        return; // already handled by waitForComputations() or closeAll()
    m_running.waitForFinished();
    m_runningActive = false;
    m_runningTask.reset();
    const Computation done = m_queue.front();
    m_queue.pop_front();
    const std::string failure = m_running.result();
    // Logged under the algorithm's identifier, so that whoever later sees the algorithm work
    // (its panel) can withdraw the alert of this failure and no other.
    if (!failure.empty())
        KESTRION_LOG_ERROR(done.identifier, "Algorithm " << done.identifier << " failed: " << failure);
    for (const Workspace::Item& item : m_workspace.algorithms())
        if (item.algorithm.get() == done.algorithm)
            m_workspace.warnUnknownParameters(item); // an algorithm created by hand has none
    attach(done.algorithm, done.identifier);
    computeNext();
}

bool GuiSession::isComputing() const {
    return m_runningActive || !m_queue.empty();
}

void GuiSession::waitForComputations() {
    while (m_runningActive)
        finishComputation(m_generation);
}

void GuiSession::attach(Algorithm* algorithm, const std::string& identifier) {
    Attached attached;
    attached.algorithm = algorithm;
    attached.controller = m_registry.createController(algorithm);
    AlgorithmController* shown = attached.controller.get();
    if (!dynamic_cast<QWidget*>(shown)) {
        // Not a panel: it still runs (init below); the host shows the algorithm's properties.
        attached.fallback = std::make_unique<PropertiesController>(algorithm);
        shown = attached.fallback.get();
    }
    if (auto* panel = dynamic_cast<AlgorithmControllerWidget*>(shown)) {
        panel->setDisplayWidget(m_window.displayWidget());
        panel->setMainWindow(&m_window);
    }
    attached.panel = dynamic_cast<QWidget*>(shown);
    if (attached.panel)
        KESTRION_LOG_INFO(Category, identifier << " shown with the panel "
                                               << attached.panel->metaObject()->className());
    const std::string title = algorithm->name().empty() ? identifier : algorithm->name();
    m_window.addControllerPanel(attached.panel, QString::fromStdString(title));
    if (attached.controller)
        attached.controller->init();
    if (attached.fallback)
        attached.fallback->init();
    m_window.fitControllerPanels();
    m_attached.push_back(std::move(attached));
    if (m_changed)
        m_changed();
}

Workspace::LoadReport GuiSession::openWorkspace(const std::string& file) {
    closeAll();
    Workspace::LoadReport report = m_workspace.load(file, m_registry, false);
    for (const Workspace::Item& item : m_workspace.algorithms())
        if (item.algorithm)
            queue(item.algorithm.get(), item.identifier);
    return report;
}

bool GuiSession::saveWorkspace(const std::string& file) {
    waitForComputations();
    return m_workspace.save(file);
}

std::string GuiSession::workspaceText() {
    waitForComputations();
    return PropertiesXml::toString(m_workspace.toProperties()).value_or(std::string());
}

void GuiSession::closeAll() {
    // An algorithm being computed is waited for; the queued ones are never computed.
    m_queue.erase(m_queue.begin() + (m_runningActive ? 1 : 0), m_queue.end());
    waitForComputations();
    if (m_changed && !m_attached.empty()) {
        m_closing = true;
        m_changed();
    }
    // Panels last created first; each controller before the algorithm it works on.
    while (!m_attached.empty())
        m_attached.pop_back();
    m_workspace.clear();
    m_closing = false;
}

std::vector<QWidget*> GuiSession::panels() const {
    std::vector<QWidget*> result;
    for (const Attached& attached : m_attached)
        result.push_back(attached.panel);
    return result;
}

std::vector<TrackingStream*> GuiSession::trackingStreams() const {
    std::vector<TrackingStream*> streams;
    if (m_closing)
        return streams;
    for (const Attached& attached : m_attached)
        if (auto* algorithm = dynamic_cast<StreamAlgorithm*>(attached.algorithm))
            if (auto* stream = dynamic_cast<TrackingStream*>(algorithm->outputStream()))
                streams.push_back(stream);
    return streams;
}

AlgorithmController* GuiSession::controller(const Algorithm* algorithm) const {
    for (const Attached& attached : m_attached)
        if (attached.algorithm == algorithm)
            return attached.controller.get();
    return nullptr;
}

} // namespace Kestrion::Gui
