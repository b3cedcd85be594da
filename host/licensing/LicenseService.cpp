#include "host/licensing/LicenseService.h"

#include "host/core/Log.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace Kestrion {

namespace {
const char* const Category = "Licensing";
}

LicenseService& LicenseService::instance() {
    static LicenseService service;
    return service;
}

std::string LicenseService::defaultLicensePath() {
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec)
        return "kestrion.lic";
    return (exe.parent_path() / "kestrion.lic").string();
}

std::string LicenseService::licensePath() {
    const char* env = std::getenv("KESTRION_LICENSE");
    if (env && *env)
        return env;
    return defaultLicensePath();
}

void LicenseService::reload() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_loaded = false;
    m_license.reset();
    m_expired = false;
    m_reportedFeatures.clear();
}

void LicenseService::loadLocked() {
    m_loaded = true;
    m_path = licensePath();
    std::string error;
    m_license = License::read(m_path, &error);
    if (!m_license) {
        KESTRION_LOG_ERROR(Category,
                           "Licence file " << m_path << ": " << error << "; no feature is licensed");
        return;
    }
    m_expired = !m_license->isValidOn(License::today());
    if (m_expired) {
        KESTRION_LOG_ERROR(Category, "Licence file " << m_path << " expired on " << m_license->expiryText()
                                                     << "; no feature is licensed");
        return;
    }
    if (Log::isAccepted(Log::Info, Category)) {
        std::ostringstream features;
        for (std::size_t i = 0; i < m_license->features().size(); ++i)
            features << (i ? ", " : "") << m_license->features()[i];
        KESTRION_LOG_INFO(Category, "Licence file " << m_path << " for \"" << m_license->licensee()
                                                    << "\" covers: " << features.str());
    }
}

bool LicenseService::isLicensed(const std::string& feature) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_loaded)
        loadLocked();
    const bool licensed = m_license && !m_expired && m_license->lists(feature);
    if (!licensed && m_reportedFeatures.insert(feature).second)
        KESTRION_LOG_INFO(Category, "Feature \"" << feature << "\" is not licensed");
    return licensed;
}

} // namespace Kestrion
