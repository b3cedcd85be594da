#include "host/apps/kestrion-gui/IgtlServing.h"

#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/IgtlServerPanelFactory.h"
#include "host/igtl/IgtlServerAlgorithm.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/FactoryRegistry.h"

namespace Kestrion::Gui::IgtlServing {

void registerAlgorithm() {
    FactoryRegistry& registry = FactoryRegistry::instance();
    if (registry.hasAlgorithm(AlgorithmIdentifier))
        return;
    auto factory = std::make_unique<AlgorithmFactory>("Kestrion", true);
    factory->registerAlgorithm<Igtl::IgtlServerAlgorithm>("OpenIGTLinkServer", "IO;OpenIGTLink;Server");
    registry.addAlgorithmFactory(std::move(factory), "kestrion-gui");
    registry.addControllerFactory(std::make_unique<IgtlServerPanelFactory>(), "kestrion-gui");
}

void followSession(const GuiSession& session) {
    const std::vector<TrackingStream*> streams = session.trackingStreams();
    for (const auto& item : session.workspace().algorithms())
        if (auto* server = dynamic_cast<Igtl::IgtlServerAlgorithm*>(item.algorithm.get()))
            server->serve(streams.empty() ? nullptr : streams.back());
}

} // namespace Kestrion::Gui::IgtlServing
