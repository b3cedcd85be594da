#pragma once

#include "host/lib/PluginRecord.h"

#include <set>
#include <string>
#include <vector>

namespace Kestrion {

/// Finds, checks, orders and initialises the plugin libraries of the plugin folders.
///
/// For each shared library ("*.so", "*.so.*") of a folder, in file-name order: dlopen it, read
/// and check its descriptor (magic string, host version; build flags are recorded only), resolve
/// `kestrionCreatePlugin` and `kestrionPluginId`, create the plugin. Then initialise the plugins
/// in dependency order (each after the plugins it depends on; "Kestrion.Stream" is built into
/// the host). A plugin that fails a step is recorded with its file name and reason, logged
/// (error, category "PluginLoader": "Plugin <file> skipped: <reason>") and skipped; the others go
/// on. Libraries of active and inactive plugins stay loaded until unload(); failed ones are
/// closed at once.
class PluginLoader {
public:
    PluginLoader() = default;
    /// unload().
    ~PluginLoader();
    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    /// The folders named by KESTRION_PLUGIN_PATH (':'-separated), else "plugins" beside the
    /// running executable.
    static std::vector<std::string> defaultFolders();
    /// Plugin ids the host provides itself: {"Kestrion.Stream"}.
    static const std::set<std::string>& builtInPluginIds();

    /// Loads the plugins of the folders, in the order given. Returns false when a folder does
    /// not exist or cannot be listed (logged; the other folders are still loaded). May be called
    /// again: plugins active from earlier calls count as present for dependencies.
    bool load(const std::vector<std::string>& folders);

    /// Every library found so far, in the order found.
    const std::vector<PluginRecord>& records() const { return m_records; }
    /// The record of the active or inactive plugin with this id, else null.
    const PluginRecord* find(const std::string& id) const;
    /// Records of active plugins in initialisation order.
    std::vector<const PluginRecord*> initialised() const;

    /// Removes what the plugins registered, destroys them in reverse initialisation order, then
    /// closes their libraries.
    void unload();

private:
    struct Candidate;
    void loadFolder(const std::string& folder, std::vector<Candidate>& candidates, bool& ok);
    bool open(Candidate& candidate, std::vector<Candidate>& candidates);
    void initialise(std::vector<Candidate>& candidates);
    void fail(Candidate& candidate, const std::string& reason);

    std::vector<PluginRecord> m_records;
    std::vector<void*> m_handles; // libraries kept open, in opening order
    int m_nextInitOrder = 0;
};

} // namespace Kestrion
