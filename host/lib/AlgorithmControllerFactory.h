#pragma once

#include <string>

namespace Kestrion {

class Algorithm;
class AlgorithmController;

/// Makes controllers for algorithms. Plugins derive from it and hand it to the host with
/// KestrionLibPlugin::registerFactories; the FactoryRegistry asks its controller factories in
/// turn for a controller for an algorithm.
class AlgorithmControllerFactory {
public:
    /// `preferred`: asked before the factories registered without it. Plugins that make
    /// controllers for their own algorithms pass true; a host's generic fallback (for example a
    /// plain properties panel that fits any algorithm) passes false, so that a specific
    /// controller wins whatever the order of registration.
    AlgorithmControllerFactory(std::string prefix, bool preferred);
    virtual ~AlgorithmControllerFactory();
    AlgorithmControllerFactory(const AlgorithmControllerFactory&) = delete;
    AlgorithmControllerFactory& operator=(const AlgorithmControllerFactory&) = delete;

    const std::string& prefix() const { return m_prefix; }
    bool preferred() const { return m_preferred; }

    /// A new controller for the algorithm, owned by the caller, or null when this factory has
    /// none for it (always null for a null algorithm). The caller calls init() on it.
    virtual AlgorithmController* create(Algorithm* algorithm) = 0;

private:
    std::string m_prefix;
    bool m_preferred;
};

} // namespace Kestrion
