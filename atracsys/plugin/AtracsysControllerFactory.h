#pragma once

#include "host/lib/AlgorithmControllerFactory.h"

namespace Kestrion {

/// The panels of the plugin's algorithms, under the prefix "Atracsys": the stream's control panel
/// (AtracsysTrackingController) for the stream-creating algorithm, nothing for any other.
class AtracsysControllerFactory : public AlgorithmControllerFactory {
public:
    AtracsysControllerFactory();

    /// A new AtracsysTrackingController on the algorithm when it is the plugin's stream-creating
    /// algorithm (by dynamic type), else null.
    AlgorithmController* create(Algorithm* algorithm) override;
};

} // namespace Kestrion
