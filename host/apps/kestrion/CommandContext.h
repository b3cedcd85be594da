#pragma once

#include "host/lib/PluginLoader.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion::Cli {

/// What a command gets from the application: the output streams and the host, whose plugins are
/// loaded on the first request.
class CommandContext {
public:
    CommandContext(std::ostream& out, std::ostream& err, std::vector<std::string> pluginFolders);
    ~CommandContext();

    std::ostream& out() { return m_out; }
    std::ostream& err() { return m_err; }
    const std::vector<std::string>& pluginFolders() const { return m_pluginFolders; }

    /// Loads the plugins of the plugin folders once. False (with a message on err()) when a
    /// plugin folder does not exist; plugins that fail are reported by the loader and skipped.
    bool loadPlugins();
    /// The loader (empty until loadPlugins()).
    const PluginLoader& plugins() const { return *m_loader; }

private:
    std::ostream& m_out;
    std::ostream& m_err;
    std::vector<std::string> m_pluginFolders;
    std::unique_ptr<PluginLoader> m_loader;
    bool m_loaded = false;
    bool m_loadResult = false;
};

} // namespace Kestrion::Cli
