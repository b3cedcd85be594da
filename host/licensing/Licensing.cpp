#include "host/licensing/Licensing.h"

#include "host/licensing/LicenseService.h"

namespace Kestrion {

bool isLicensed(const std::string& feature) {
    return LicenseService::instance().isLicensed(feature);
}

} // namespace Kestrion
