#include "host/apps/kestrion-gui/GuiApplication.h"

#include "host/apps/kestrion-gui/HostWindow.h"
#include "host/apps/kestrion-gui/IgtlServing.h"
#include "host/apps/kestrion-gui/Ros2Publishing.h"
#include "host/core/Log.h"
#include "host/lib/FactoryRegistry.h"

#include <QApplication>
#include <QPixmap>
#include <QTimer>

namespace Kestrion::Gui {

namespace {
const char* const Category = "kestrion-gui";
}

GuiApplication::GuiApplication(GuiOptions options)
    : m_options(std::move(options)) {}

GuiApplication::~GuiApplication() {
    m_window.reset(); // panels and algorithms use plugin code: they go before the plugins
    m_loader.unload();
}

bool GuiApplication::start() {
    const std::vector<std::string> folders =
        m_options.pluginFolders.empty() ? PluginLoader::defaultFolders() : m_options.pluginFolders;
    // The window first, so that its log shows what loading the plugins reports.
    m_window = std::make_unique<HostWindow>(FactoryRegistry::instance());
    const bool loaded = m_loader.load(folders);
    KESTRION_LOG_INFO(Category, m_loader.initialised().size()
                                    << " plugins active, " << FactoryRegistry::instance().algorithms().size()
                                    << " algorithms offered");
    IgtlServing::registerAlgorithm();
    Ros2Publishing::registerAlgorithm();
    m_window->refreshAlgorithms();
    return loaded;
}

bool GuiApplication::saveScreenshot(const std::string& file) const {
    if (!m_window)
        return false;
    const QPixmap picture = m_window->grab();
    if (picture.isNull() || !picture.save(QString::fromStdString(file), "PNG")) {
        KESTRION_LOG_ERROR(Category, "Cannot write the screenshot " << file);
        return false;
    }
    KESTRION_LOG_INFO(Category, "Screenshot saved to " << file);
    return true;
}

int GuiApplication::run() {
    if (!m_window)
        start();
    m_window->show();
    int failures = 0;
    if (!m_options.workspace.empty() && !m_window->openWorkspace(m_options.workspace))
        ++failures;
    if (!m_options.screenshot.empty()) {
        QTimer::singleShot(m_options.screenshotDelayMs, m_window.get(), [this, &failures]() {
            if (!saveScreenshot(m_options.screenshot))
                ++failures;
            m_window->setAskToSaveChanges(false); // nobody is there to answer
            m_window->close();
            QApplication::exit(0);
        });
    }
    const int code = QApplication::exec();
    return code != 0 ? code : (failures > 0 ? 1 : 0);
}

} // namespace Kestrion::Gui
