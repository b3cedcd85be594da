#pragma once

#include "host/lib/AlgorithmControllerFactory.h"

namespace Kestrion::Gui {

/// Makes the IgtlServerPanel for the OpenIGTLink server algorithm (preferred, so that it wins
/// over the host's generic properties panel); null for any other algorithm.
class IgtlServerPanelFactory : public AlgorithmControllerFactory {
public:
    IgtlServerPanelFactory();
    AlgorithmController* create(Algorithm* algorithm) override;
};

} // namespace Kestrion::Gui
