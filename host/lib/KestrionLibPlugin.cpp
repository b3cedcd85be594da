#include "host/lib/KestrionLibPlugin.h"

#include "host/lib/AlgorithmControllerFactory.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/DataAnnotationFactory.h"
#include "host/lib/FactoryRegistry.h"

namespace Kestrion {

KestrionLibPlugin::~KestrionLibPlugin() = default;

void KestrionLibPlugin::registerFactories(std::unique_ptr<AlgorithmFactory> algorithmFactory,
                                          std::unique_ptr<AlgorithmControllerFactory> controllerFactory,
                                          std::unique_ptr<DataAnnotationFactory> annotationFactory) {
    FactoryRegistry& registry = FactoryRegistry::instance();
    const std::string owner = id();
    registry.addAlgorithmFactory(std::move(algorithmFactory), owner);
    registry.addControllerFactory(std::move(controllerFactory), owner);
    registry.addAnnotationFactory(std::move(annotationFactory), owner);
}

} // namespace Kestrion
