#pragma once

#include <memory>
#include <string>
#include <vector>

namespace Kestrion {

class AlgorithmFactory;
class AlgorithmControllerFactory;
class DataAnnotationFactory;

/// Base class of every plugin. A plugin library exports `kestrionCreatePlugin` returning a new
/// object of a class derived from this one (see PluginExport.h). The host owns the object: it
/// asks for the identity strings, orders plugins after their dependencies, calls init() once,
/// and destroys the plugin (after removing what it registered) before unloading its library.
class KestrionLibPlugin {
public:
    KestrionLibPlugin() = default;
    virtual ~KestrionLibPlugin();
    KestrionLibPlugin(const KestrionLibPlugin&) = delete;
    KestrionLibPlugin& operator=(const KestrionLibPlugin&) = delete;

    /// Activates the plugin: 0 when it is active, 1 when it stays inactive (for example because
    /// its feature is not licensed). An inactive plugin registers nothing.
    virtual int init() = 0;
    /// The unique plugin id, for example "Kestrion.AtracsysTrackingSpryTrack".
    virtual std::string id() const = 0;
    virtual std::string author() const = 0;
    virtual std::string description() const = 0;
    /// Ids of the plugins that must be initialised before this one. "Kestrion.Stream", the
    /// host's stream framework, is always present.
    virtual std::vector<std::string> dependencies() const { return {}; }

    /// Hands the plugin's factories to the host's FactoryRegistry, owned from then on and
    /// recorded as this plugin's. Each may be null.
    void registerFactories(std::unique_ptr<AlgorithmFactory> algorithmFactory,
                           std::unique_ptr<AlgorithmControllerFactory> controllerFactory,
                           std::unique_ptr<DataAnnotationFactory> annotationFactory);
};

} // namespace Kestrion
