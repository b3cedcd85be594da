#pragma once

#include <QStringList>

#include <string>
#include <vector>

namespace Kestrion::Gui {

/// The command line of the desktop host:
///
///     kestrion-gui [--plugin-path FOLDER]... [--workspace FILE] [--screenshot FILE [--after MS]]
///     kestrion-gui --help | --version
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
    /// "kestrion-gui <host version>".
    static std::string version();
    /// The answer to --help (or -h) and --version, found in the raw command line before the
    /// application and its display exist, so that both work without a display; "" when the
    /// command line asks for neither (the values of the options are not mistaken for them).
    static std::string answerWithoutDisplay(int argc, const char* const* argv);
};

} // namespace Kestrion::Gui
