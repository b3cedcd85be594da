#include "host/apps/kestrion-gui/Ros2Publishing.h"

#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/FactoryRegistry.h"
#include "host/ros2/Ros2PublisherAlgorithm.h"

namespace Kestrion::Gui::Ros2Publishing {

void registerAlgorithm() {
    FactoryRegistry& registry = FactoryRegistry::instance();
    if (registry.hasAlgorithm("Kestrion.Ros2Publisher"))
        return;
    auto factory = std::make_unique<AlgorithmFactory>("Kestrion", true);
    factory->registerAlgorithm<Ros2::Ros2PublisherAlgorithm>("Ros2Publisher", "IO;ROS 2;Publisher");
    registry.addAlgorithmFactory(std::move(factory), "kestrion-gui");
}

void followSession(const GuiSession& session) {
    const std::vector<TrackingStream*> streams = session.trackingStreams();
    for (const auto& item : session.workspace().algorithms())
        if (auto* publisher = dynamic_cast<Ros2::Ros2PublisherAlgorithm*>(item.algorithm.get()))
            publisher->serve(streams.empty() ? nullptr : streams.back());
}

} // namespace Kestrion::Gui::Ros2Publishing
