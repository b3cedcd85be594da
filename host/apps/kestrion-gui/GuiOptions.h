#pragma once

#include <QStringList>

#include <string>
#include <vector>

namespace Kestrion::Gui {

/// The command line of the desktop host:
///
///     kestrion-gui [--plugin-path FOLDER]... [--workspace FILE] [--screenshot FILE [--after MS]]
///
/// --plugin-path replaces the default plugin folders (KESTRION_PLUGIN_PATH, else "plugins" beside
/// the executable); --workspace opens a workspace at start; --screenshot saves a picture of the
/// main window MS milliseconds (default 1000) after start and quits.
struct GuiOptions {
    std::vector<std::string> pluginFolders;
    std::string workspace;
    std::string screenshot;
    int screenshotDelayMs = 1000;
    bool help = false;
    /// Why the command line was refused; empty when it was accepted.
    std::string error;

    static GuiOptions parse(const QStringList& arguments);
    static const char* usage();
};

} // namespace Kestrion::Gui
