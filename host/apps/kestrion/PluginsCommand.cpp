#include "host/apps/kestrion/PluginsCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/lib/FactoryRegistry.h"

#include <ostream>

namespace Kestrion::Cli {

namespace {

std::string joined(const std::vector<std::string>& items, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < items.size(); ++i)
        text += (i ? separator : "") + items[i];
    return text;
}

void field(std::ostream& out, const char* label, const std::string& value) {
    std::string padded = std::string(label) + ":";
    padded.resize(14, ' ');
    out << "  " << padded << value << "\n";
}

} // namespace

std::string PluginsCommand::summary() const {
    return "list the plugins found, their status and algorithms";
}

std::string PluginsCommand::help() const {
    return "Usage: kestrion plugins\n"
           "\n"
           "Loads the plugins of the plugin folder and lists each library found: its id, version,\n"
           "author, dependencies and build flags, whether it is active, inactive or failed (and\n"
           "why), and the algorithms it offers with their identifiers and menu paths.\n";
}

int PluginsCommand::run(CommandContext& context, const std::vector<std::string>& arguments) {
    if (!arguments.empty()) {
        context.err() << "kestrion plugins: unexpected argument '" << arguments.front()
                      << "' (see kestrion plugins --help)\n";
        return 2;
    }
    if (!context.loadPlugins())
        return 1;

    std::ostream& out = context.out();
    const auto& records = context.plugins().records();
    out << "Plugins in " << joined(context.pluginFolders(), ", ") << ":\n";
    if (records.empty())
        out << "\n(no plugin libraries)\n";

    std::size_t counts[3] = {0, 0, 0};
    for (const auto& record : records) {
        ++counts[static_cast<int>(record.status)];
        out << "\n" << record.fileName << "\n";
        if (!record.id.empty())
            field(out, "id", record.id);
        switch (record.status) {
        case PluginStatus::Active:
            field(out, "status", "active");
            break;
        case PluginStatus::Inactive:
            field(out, "status", "inactive: " + record.reason);
            break;
        case PluginStatus::Failed:
            field(out, "status", "failed: " + record.reason);
            break;
        }
        if (record.status == PluginStatus::Failed && record.author.empty())
            continue;
        field(out, "version", record.pluginVersion.empty() ? "(none)" : record.pluginVersion);
        field(out, "author", record.author);
        field(out, "description", record.description);
        field(out, "depends on",
              record.dependencies.empty() ? "(nothing)" : joined(record.dependencies, ", "));
        field(out, "build flags", record.buildFlags.empty() ? "(none)" : record.buildFlags);
        if (record.status != PluginStatus::Active)
            continue;
        const auto algorithms = FactoryRegistry::instance().algorithmsOf(record.id);
        if (algorithms.empty())
            field(out, "algorithms", "(none)");
        for (std::size_t i = 0; i < algorithms.size(); ++i) {
            const auto& algorithm = algorithms[i];
            const std::string line = algorithm.identifier + "  [" + algorithm.guiPath + "]" +
                                     (algorithm.listed ? "" : "  (unlisted)");
            if (i == 0)
                field(out, "algorithms", line);
            else
                out << std::string(16, ' ') << line << "\n";
        }
    }

    out << "\nBuilt in: "
        << joined({PluginLoader::builtInPluginIds().begin(), PluginLoader::builtInPluginIds().end()}, ", ")
        << "\n";
    out << "Summary: " << counts[0] << " active, " << counts[1] << " inactive, " << counts[2] << " failed\n";
    return 0;
}

} // namespace Kestrion::Cli
