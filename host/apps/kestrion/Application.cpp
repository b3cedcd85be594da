#include "host/apps/kestrion/Application.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/core/Log.h"
#include "host/lib/PluginLoader.h"

#include <optional>
#include <ostream>
#include <sstream>

namespace Kestrion::Cli {

namespace {

/// Messages below this level stay quiet unless --log-level asks for them.
constexpr int DefaultLogLevel = Log::Warning;

int usageError(std::ostream& err, const std::string& message) {
    err << "kestrion: " << message << " (see kestrion --help)\n";
    return 2;
}

} // namespace

Application::Application() = default;
Application::~Application() = default;

void Application::addCommand(std::unique_ptr<Command> command) {
    m_commands.push_back(std::move(command));
}

const Command* Application::command(const std::string& name) const {
    for (const auto& c : m_commands)
        if (c->name() == name)
            return c.get();
    return nullptr;
}

std::string Application::help() const {
    std::ostringstream text;
    text << "Usage: kestrion [OPTIONS] COMMAND [ARGS...]\n"
            "\n"
            "The Kestrion command-line host: loads the plugins and runs a command.\n"
            "\n"
            "Commands:\n";
    // The summaries line up after the longest command name.
    std::size_t width = 0;
    for (const auto& c : m_commands)
        width = std::max(width, c->name().size() + 2);
    for (const auto& c : m_commands) {
        std::string name = c->name();
        name.resize(width, ' ');
        text << "  " << name << c->summary() << "\n";
    }
    text << "\n"
            "Options:\n"
            "  --log-level LEVEL   trace, debug, info, warning, error or fatal (or 0-5); default warning\n"
            "  --plugin-path DIR   plugin folder (default: $KESTRION_PLUGIN_PATH, else the folder\n"
            "                      \"plugins\" beside the kestrion executable)\n"
            "  -h, --help          this help; \"kestrion COMMAND --help\" describes a command\n"
            "\n"
            "Environment:\n"
            "  KESTRION_PLUGIN_PATH  plugin folders, separated by ':'\n"
            "  KESTRION_LICENSE      licence file (default: kestrion.lic beside the executable)\n"
            "\n"
            "Exit status: 0 success, 1 failure, 2 bad arguments.\n";
    return text.str();
}

int Application::run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    std::optional<int> logLevel;
    std::vector<std::string> pluginFolders;
    bool helpRequested = false;
    Command* selected = nullptr;
    std::vector<std::string> commandArguments;

    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--log-level" || argument == "--plugin-path") {
            if (i + 1 >= arguments.size())
                return usageError(err, "option " + argument + " needs a value");
            const std::string& value = arguments[++i];
            if (argument == "--plugin-path") {
                if (value.empty())
                    return usageError(err, "option --plugin-path needs a folder");
                pluginFolders.push_back(value);
            } else {
                const int level = Log::parseLevel(value);
                if (level < 0)
                    return usageError(err, "unknown log level '" + value + "'");
                logLevel = level;
            }
        } else if (argument == "-h" || argument == "--help") {
            helpRequested = true;
        } else if (selected) {
            commandArguments.push_back(argument);
        } else if (!argument.empty() && argument[0] == '-') {
            return usageError(err, "unknown option '" + argument + "'");
        } else {
            for (const auto& c : m_commands)
                if (c->name() == argument)
                    selected = c.get();
            if (!selected)
                return usageError(err, "unknown command '" + argument + "'");
        }
    }

    if (helpRequested) {
        out << (selected ? selected->help() : help());
        return 0;
    }
    if (!selected)
        return usageError(err, "no command given");

    Log::setGlobalLevel(logLevel ? *logLevel : DefaultLogLevel);
    if (pluginFolders.empty())
        pluginFolders = PluginLoader::defaultFolders();
    CommandContext context(out, err, pluginFolders);
    return selected->run(context, commandArguments);
}

} // namespace Kestrion::Cli
