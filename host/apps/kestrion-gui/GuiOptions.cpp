#include "host/apps/kestrion-gui/GuiOptions.h"

#include "host/lib/PluginDescriptor.h"

#include <cstring>

namespace Kestrion::Gui {

const char* GuiOptions::usage() {
    return "Usage: kestrion-gui [--plugin-path FOLDER]... [--workspace FILE] [--screenshot FILE [--after "
           "MS]]\n"
           "  --plugin-path FOLDER  load plugins from FOLDER instead of the default folders (repeatable)\n"
           "  --workspace FILE      open the workspace FILE at start\n"
           "  --screenshot FILE     save a PNG picture of the main window to FILE, then quit\n"
           "  --after MS            take the screenshot MS milliseconds after start (default 1000)\n"
           "  --help, -h            show this help and exit\n"
           "  --version             show the version and exit\n"
           "Qt's own options (-platform NAME, -geometry WxH+X+Y, ...) are accepted too.\n";
}

std::string GuiOptions::version() {
    return std::string("kestrion-gui ") + PluginDescriptor::HostVersion + "\n";
}

std::string GuiOptions::answerWithoutDisplay(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        for (const char* option : {"--plugin-path", "--workspace", "--screenshot", "--after"})
            if (std::strcmp(argument, option) == 0)
                ++i; // its value
        if (std::strcmp(argument, "--help") == 0 || std::strcmp(argument, "-h") == 0)
            return usage();
        if (std::strcmp(argument, "--version") == 0)
            return version();
    }
    return "";
}

GuiOptions GuiOptions::parse(const QStringList& arguments) {
    GuiOptions options;
    // arguments[0] is the program.
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const auto value = [&](std::string& out) {
            if (i + 1 >= arguments.size() || arguments[i + 1].isEmpty()) {
                options.error = argument.toStdString() + " needs a value";
                return false;
            }
            out = arguments[++i].toStdString();
            return true;
        };
        std::string text;
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            options.help = true;
        } else if (argument == QLatin1String("--plugin-path")) {
            if (!value(text))
                return options;
            options.pluginFolders.push_back(text);
        } else if (argument == QLatin1String("--workspace")) {
            if (!value(options.workspace))
                return options;
        } else if (argument == QLatin1String("--screenshot")) {
            if (!value(options.screenshot))
                return options;
        } else if (argument == QLatin1String("--after")) {
            if (!value(text))
                return options;
            bool ok = false;
            const int delay = QString::fromStdString(text).toInt(&ok);
            if (!ok || delay < 0) {
                options.error = "--after needs a number of milliseconds, not \"" + text + "\"";
                return options;
            }
            options.screenshotDelayMs = delay;
        } else {
            options.error = "unknown argument \"" + argument.toStdString() + "\"";
            return options;
        }
    }
    return options;
}

} // namespace Kestrion::Gui
