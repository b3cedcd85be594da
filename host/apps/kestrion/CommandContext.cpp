#include "host/apps/kestrion/CommandContext.h"

#include <filesystem>
#include <ostream>

namespace Kestrion::Cli {

CommandContext::CommandContext(std::ostream& out, std::ostream& err, std::vector<std::string> pluginFolders)
    : m_out(out)
    , m_err(err)
    , m_pluginFolders(std::move(pluginFolders))
    , m_loader(std::make_unique<PluginLoader>()) {}

CommandContext::~CommandContext() = default;

bool CommandContext::loadPlugins() {
    if (m_loaded)
        return m_loadResult;
    m_loaded = true;
    m_loadResult = true;
    for (const auto& folder : m_pluginFolders) {
        std::error_code ec;
        if (!std::filesystem::is_directory(folder, ec)) {
            m_err << "kestrion: plugin folder " << folder
                  << (std::filesystem::exists(folder, ec) ? " is not a folder" : " does not exist") << "\n";
            m_loadResult = false;
        }
    }
    if (m_loadResult)
        m_loadResult = m_loader->load(m_pluginFolders);
    return m_loadResult;
}

} // namespace Kestrion::Cli
