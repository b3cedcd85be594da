#include "atracsys/plugin/AtracsysAlgorithmFactory.h"

#include "atracsys/plugin/AtracsysGeometryCheckAlgorithm.h"
#include "atracsys/plugin/AtracsysStreamAlgorithm.h"

namespace Kestrion {

AtracsysAlgorithmFactory::AtracsysAlgorithmFactory()
    : AlgorithmFactory("Atracsys", true) {
    registerAlgorithm<SpryTrack::AtracsysStreamAlgorithm>("SpryTrackStream", "IO;Atracsys Tracking;SpryTrack",
                                                          {}, std::nullopt, acceptsNoInput());
    // Marker geometry files checked as tracking would take them (kestrion check-geometry).
    registerAlgorithm<SpryTrack::AtracsysGeometryCheckAlgorithm>(
        "GeometryCheck", "Tools;Atracsys Tracking;Check geometry files", {}, std::nullopt, acceptsNoInput());
}

} // namespace Kestrion
