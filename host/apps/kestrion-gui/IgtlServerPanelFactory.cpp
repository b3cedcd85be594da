#include "host/apps/kestrion-gui/IgtlServerPanelFactory.h"

#include "host/apps/kestrion-gui/IgtlServerPanel.h"
#include "host/igtl/IgtlServerAlgorithm.h"

namespace Kestrion::Gui {

IgtlServerPanelFactory::IgtlServerPanelFactory()
    : AlgorithmControllerFactory("Kestrion", true) {}

AlgorithmController* IgtlServerPanelFactory::create(Algorithm* algorithm) {
    auto* server = dynamic_cast<Igtl::IgtlServerAlgorithm*>(algorithm);
    return server ? new IgtlServerPanel(server) : nullptr;
}

} // namespace Kestrion::Gui
