#include "python/src/PythonHost.h"

#include "python/src/PythonError.h"

#include "host/core/CaptureLogSink.h"
#include "host/core/Log.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/PluginLoader.h"
#include "host/licensing/LicenseService.h"

#include <cstdlib>

namespace Kestrion::Python {

PythonHost& PythonHost::instance() {
    static PythonHost host;
    return host;
}

PythonHost::PythonHost() = default;

void PythonHost::setInstallation(const std::string& pluginFolder, const std::string& licenseFile) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pluginFolder = pluginFolder;
    m_licenseFile = licenseFile;
}

std::vector<std::string> PythonHost::pluginFolders() const {
    const char* env = std::getenv("KESTRION_PLUGIN_PATH");
    if ((env && *env) || m_pluginFolder.empty())
        return PluginLoader::defaultFolders();
    return {m_pluginFolder};
}

const PluginLoader* PythonHost::loader() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_loader;
}

void PythonHost::loadLocked() {
    if (m_loaded)
        return;
    m_loaded = true;
    // The licence service reads KESTRION_LICENSE at its first check, which the plugins make
    // while they are initialised: the installation's licence is named before that.
    const char* license = std::getenv("KESTRION_LICENSE");
    if ((!license || !*license) && !m_licenseFile.empty())
        ::setenv("KESTRION_LICENSE", m_licenseFile.c_str(), 0);
    auto sink = std::make_shared<CaptureLogSink>();
    Log::addSink(sink);
    m_loader = new PluginLoader();
    m_loader->load(pluginFolders());
    Log::removeSink(sink);
    // What the loader and the licence service said, to explain a missing algorithm.
    for (const LogRecord& record : sink->records())
        if (record.level >= Log::Warning || record.category == "Licensing")
            m_loadNotes += "\n  " + record.message;
}

void PythonHost::requireAlgorithm(const std::string& algorithmId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    loadLocked();
    if (FactoryRegistry::instance().hasAlgorithm(algorithmId))
        return;
    std::string folders;
    for (const std::string& folder : pluginFolders())
        folders += (folders.empty() ? "" : ", ") + folder;
    bool inactive = false;
    std::string plugins;
    for (const PluginRecord& record : m_loader->records()) {
        if (record.status == PluginStatus::Active)
            continue;
        inactive = inactive || record.status == PluginStatus::Inactive;
        plugins += "; " + record.fileName + " is " + toString(record.status) + ": " + record.reason;
    }
    if (inactive)
        throw PythonError(PythonError::Kind::License,
                          "the tracking stream " + algorithmId +
                              " is not available: its plugin is not licensed by the licence " +
                              LicenseService::licensePath() + plugins + m_loadNotes);
    throw PythonError(PythonError::Kind::General, "the tracking stream " + algorithmId +
                                                      " is not available: no plugin in " + folders +
                                                      " offers it" + plugins + m_loadNotes);
}

} // namespace Kestrion::Python
