#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {
class PluginLoader;
}

namespace Kestrion::Python {

/// The host platform inside a Python process: the plugins, loaded once through the host's plugin
/// loader, from KESTRION_PLUGIN_PATH or else the plugin folder of the installation the package
/// belongs to (not the folder beside the running executable, which is Python's), under the
/// licence named by KESTRION_LICENSE or else the installation's.
///
/// The plugins stay loaded until the process ends: streams of a plugin may live as long as
/// Python objects do, and the order in which an interpreter ends its modules is not ours.
class PythonHost {
public:
    static PythonHost& instance();

    /// The installation's plugin folder and licence, used when the environment names none.
    /// Effective until the plugins are loaded.
    void setInstallation(const std::string& pluginFolder, const std::string& licenseFile);
    /// The folders the plugins are (or will be) loaded from.
    std::vector<std::string> pluginFolders() const;

    /// Loads the plugins (once) and checks that an algorithm of that identifier is offered.
    /// Throws PythonError (License when a plugin stayed inactive, General otherwise) naming the
    /// folders and the plugins that failed, with their reasons.
    void requireAlgorithm(const std::string& algorithmId);

    /// The loader, after requireAlgorithm() (null before).
    const PluginLoader* loader() const;

private:
    PythonHost();
    void loadLocked();

    // Python threads may create trackers concurrently (the interpreter lock is released while a
    // stream opens); the loading happens once, under this lock.
    mutable std::mutex m_mutex;
    std::string m_pluginFolder;
    std::string m_licenseFile;
    PluginLoader* m_loader = nullptr; // never deleted: see the class comment
    bool m_loaded = false;
    std::string m_loadNotes; // warnings and licence lines logged while loading
};

} // namespace Kestrion::Python
