#pragma once

#include <Eigen/Core>

#include <string>
#include <vector>

namespace Kestrion {
class AtracsysTrackingStreamBase;
}

namespace Kestrion::SpryTrack {

/// Compares a marker just made (saved to `file`) with itself and with every geometry of the
/// stream at the stream's "Distance matching tolerance", and logs one warning per finding under
/// the category "AtracsysAmbiguityCheck", as adding a geometry to the stream does. The stream's
/// geometries are named by instrument name and id. Called on the GUI thread after the save.
void warnAboutNewMarker(AtracsysTrackingStreamBase& stream, const std::string& file,
                        const std::vector<Eigen::Vector3d>& points);

} // namespace Kestrion::SpryTrack
