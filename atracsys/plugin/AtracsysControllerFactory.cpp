#include "atracsys/plugin/AtracsysControllerFactory.h"

#include "atracsys/gui/AtracsysTrackingController.h"
#include "atracsys/stream/AtracsysStreamAlgorithm.h"

namespace Kestrion {

AtracsysControllerFactory::AtracsysControllerFactory()
    : AlgorithmControllerFactory("Atracsys", true) {}

AlgorithmController* AtracsysControllerFactory::create(Algorithm* algorithm) {
    auto* streamAlgorithm = dynamic_cast<SpryTrack::AtracsysStreamAlgorithm*>(algorithm);
    if (!streamAlgorithm)
        return nullptr;
    return new AtracsysTrackingController(streamAlgorithm);
}

} // namespace Kestrion
