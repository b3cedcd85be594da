#pragma once

#include "host/licensing/License.h"

#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace Kestrion {

/// The licence of the running process. The licence file is the one named by the environment
/// variable KESTRION_LICENSE, else "kestrion.lic" in the folder of the running executable (the
/// default licence of an installation, which covers the bundled plugins). It is read on the
/// first check and kept; a missing, unreadable, malformed or expired licence is reported once
/// (error log, category "Licensing") and then licenses nothing.
class LicenseService {
public:
    static LicenseService& instance();

    /// True when the licence lists the feature and has not expired. A feature that is not
    /// licensed is reported once (info) and is otherwise a normal answer.
    bool isLicensed(const std::string& feature);

    /// Forgets the licence read so far; the next check reads the file again (and reports
    /// problems again).
    void reload();
    /// The file that is (or will be) read: KESTRION_LICENSE, else defaultLicensePath().
    static std::string licensePath();
    /// "kestrion.lic" beside the running executable.
    static std::string defaultLicensePath();

private:
    LicenseService() = default;
    void loadLocked();

    // Plugins check licences from whichever thread initialises them; the lazily loaded state
    // and the set of features already reported are shared between those calls.
    std::mutex m_mutex;
    bool m_loaded = false;
    std::string m_path;
    std::optional<License> m_license; // empty: nothing is licensed
    bool m_expired = false;
    std::set<std::string> m_reportedFeatures;
};

} // namespace Kestrion
