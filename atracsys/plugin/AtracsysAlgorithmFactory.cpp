#include "atracsys/plugin/AtracsysAlgorithmFactory.h"

#include "atracsys/stream/AtracsysStreamAlgorithm.h"

namespace Kestrion {

AtracsysAlgorithmFactory::AtracsysAlgorithmFactory()
    : AlgorithmFactory("Atracsys", true) {
    registerAlgorithm<SpryTrack::AtracsysStreamAlgorithm>("SpryTrackStream", "IO;Atracsys Tracking;SpryTrack",
                                                          {}, std::nullopt, acceptsNoInput());
}

} // namespace Kestrion
