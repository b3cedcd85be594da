#include "host/apps/kestrion-gui/GuiSession.h"

#include "host/core/Log.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/widgets/AlgorithmControllerWidget.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/PropertiesController.h"

#include <QWidget>

#include <exception>

namespace Kestrion::Gui {

namespace {
const char* const Category = "kestrion-gui";
}

GuiSession::GuiSession(MainWindow& window, const FactoryRegistry& registry)
    : m_window(window)
    , m_registry(registry) {}

GuiSession::~GuiSession() {
    closeAll();
}

Algorithm* GuiSession::createAlgorithm(const std::string& identifier) {
    std::unique_ptr<Algorithm> algorithm = m_registry.createAlgorithm(identifier);
    if (!algorithm) {
        KESTRION_LOG_ERROR(Category, "Cannot create algorithm \"" << identifier << "\"");
        return nullptr;
    }
    try {
        algorithm->compute();
        if (algorithm->status() != Algorithm::Success)
            KESTRION_LOG_ERROR(Category, "Algorithm " << identifier << " failed (status "
                                                      << algorithm->status() << ")");
    } catch (const std::exception& e) {
        KESTRION_LOG_ERROR(Category, "Algorithm " << identifier << " failed: " << e.what());
    }
    Algorithm* created = algorithm.get();
    m_workspace.add(identifier, std::move(algorithm));
    attach(created, identifier);
    return created;
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
}

Workspace::LoadReport GuiSession::openWorkspace(const std::string& file) {
    closeAll();
    Workspace::LoadReport report = m_workspace.load(file, m_registry);
    for (const Workspace::Item& item : m_workspace.algorithms())
        if (item.algorithm)
            attach(item.algorithm.get(), item.identifier);
    return report;
}

bool GuiSession::saveWorkspace(const std::string& file) const {
    return m_workspace.save(file);
}

void GuiSession::closeAll() {
    // Panels last created first; each controller before the algorithm it works on.
    while (!m_attached.empty())
        m_attached.pop_back();
    m_workspace.clear();
}

std::vector<QWidget*> GuiSession::panels() const {
    std::vector<QWidget*> result;
    for (const Attached& attached : m_attached)
        result.push_back(attached.panel);
    return result;
}

AlgorithmController* GuiSession::controller(const Algorithm* algorithm) const {
    for (const Attached& attached : m_attached)
        if (attached.algorithm == algorithm)
            return attached.controller.get();
    return nullptr;
}

} // namespace Kestrion::Gui
