#pragma once

#include "host/lib/AlgorithmFactory.h"

namespace Kestrion {

/// The plugin's algorithms, under the prefix "Atracsys": the stream-creating algorithm
/// "SpryTrackStream" (menu path "IO;Atracsys Tracking;SpryTrack"), which takes no input data.
class AtracsysAlgorithmFactory : public AlgorithmFactory {
public:
    AtracsysAlgorithmFactory();
};

} // namespace Kestrion
