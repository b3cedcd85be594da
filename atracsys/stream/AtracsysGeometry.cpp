#include "atracsys/stream/AtracsysGeometry.h"

#include "host/core/Log.h"

namespace Kestrion::SpryTrack {

bool moveOutOfReservedIds(const std::string& deviceTypeName, ftkGeometry& geometry) {
    // The literal family name, not a model name such as "sTk 180": it is what the SDK versions
    // with reserved ids report.
    if (deviceTypeName != "SpryTrack" || geometry.geometryId > 999)
        return false;
    KESTRION_LOG_ERROR("AtracsysTrackingStream",
                       "INI marker files with ids < 1000 are not supported with this "
                       "Atracsys SDK version. Values 0 to 1000 are reserved");
    KESTRION_LOG_WARN("AtracsysTrackingStream", "INI marker id is changed from "
                                                    << geometry.geometryId << " to "
                                                    << geometry.geometryId + 1000);
    geometry.geometryId += 1000;
    return true;
}

} // namespace Kestrion::SpryTrack
