#pragma once

#include <string>

namespace Kestrion {

/// True when the process licence covers the feature (see LicenseService for which file is read
/// and License for its format). Plugins ask this in init() and stay inactive when it is false.
bool isLicensed(const std::string& feature);

} // namespace Kestrion
