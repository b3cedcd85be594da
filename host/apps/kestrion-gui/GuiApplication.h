#pragma once

#include "host/apps/kestrion-gui/GuiOptions.h"
#include "host/lib/PluginLoader.h"

#include <memory>

namespace Kestrion::Gui {

class HostWindow;

/// The desktop host's start and end: loads the plugins, shows the window, opens the workspace
/// of the command line and takes the screenshot asked for. Needs a QApplication. The window
/// (with the algorithms and panels) goes before the plugins are unloaded.
class GuiApplication {
public:
    explicit GuiApplication(GuiOptions options);
    ~GuiApplication();
    GuiApplication(const GuiApplication&) = delete;
    GuiApplication& operator=(const GuiApplication&) = delete;

    /// Loads the plugins and builds the window (shown by run()). False when a plugin folder
    /// could not be read (the window is still built, with what was loaded).
    bool start();
    /// Shows the window, opens the workspace, schedules the screenshot and runs the event
    /// loop; the exit code (0, or 1 when the workspace or the screenshot failed).
    int run();

    HostWindow* window() const { return m_window.get(); }
    const PluginLoader& plugins() const { return m_loader; }
    /// Saves a PNG picture of the window; false (logged) when it cannot be written.
    bool saveScreenshot(const std::string& file) const;

private:
    GuiOptions m_options;
    PluginLoader m_loader;
    std::unique_ptr<HostWindow> m_window; // declared after the loader: destroyed first
};

} // namespace Kestrion::Gui
