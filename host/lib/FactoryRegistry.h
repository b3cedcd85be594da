#pragma once

#include "host/core/Algorithm.h"
#include "host/lib/AlgorithmController.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {

class AlgorithmControllerFactory;
class AlgorithmFactory;
class DataAnnotationFactory;

/// The host's factories: every algorithm, controller and data-annotation factory registered by
/// the plugins (KestrionLibPlugin::registerFactories) or the host, each recorded with the id of
/// the plugin it belongs to ("" for the host). Finds algorithms by identifier
/// ("<prefix>.<name>") and controllers for algorithms.
class FactoryRegistry {
public:
    /// One registered algorithm as the hosts list it.
    struct AlgorithmInfo {
        std::string identifier; ///< "<prefix>.<name>"
        std::string name;
        std::string guiPath;
        std::string owner; ///< plugin id, "" for the host
        bool listed = true;
        const AlgorithmFactory* factory = nullptr;
    };

    static FactoryRegistry& instance();

    FactoryRegistry();
    ~FactoryRegistry();
    FactoryRegistry(const FactoryRegistry&) = delete;
    FactoryRegistry& operator=(const FactoryRegistry&) = delete;

    /// Takes ownership; null is ignored. An algorithm identifier that an earlier factory already
    /// offers is reported (warning, category "FactoryRegistry"); the earlier one keeps it.
    void addAlgorithmFactory(std::unique_ptr<AlgorithmFactory> factory, const std::string& owner);
    void addControllerFactory(std::unique_ptr<AlgorithmControllerFactory> factory, const std::string& owner);
    void addAnnotationFactory(std::unique_ptr<DataAnnotationFactory> factory, const std::string& owner);
    /// Destroys every factory of that owner; returns how many there were.
    std::size_t removeOwnedBy(const std::string& owner);

    /// Every algorithm of every factory, in registration order (listed or not).
    std::vector<AlgorithmInfo> algorithms() const;
    /// The algorithms of one owner.
    std::vector<AlgorithmInfo> algorithmsOf(const std::string& owner) const;
    /// Identifiers of the algorithms that accept the data, in registration order.
    std::vector<std::string> compatibleAlgorithms(const DataList& data) const;
    bool hasAlgorithm(const std::string& identifier) const;

    /// A new algorithm by identifier (configured with its default properties), or null when no
    /// factory offers it or it cannot be created for the data (the factory logs why).
    std::unique_ptr<Algorithm> createAlgorithm(const std::string& identifier,
                                               const DataList& data = {}) const;
    /// A new controller for the algorithm from the first controller factory that makes one:
    /// preferred factories first, each group in registration order. Null when none does (or
    /// the algorithm is null). init() is left to the caller.
    std::unique_ptr<AlgorithmController> createController(Algorithm* algorithm) const;

    std::vector<const DataAnnotationFactory*> annotationFactories() const;
    std::size_t algorithmFactoryCount() const;
    std::size_t controllerFactoryCount() const;

private:
    template <class F>
    struct Owned {
        std::unique_ptr<F> factory;
        std::string owner;
    };
    /// The factory offering the identifier, and the algorithm's name in it.
    const AlgorithmFactory* findLocked(const std::string& identifier, std::string* name) const;

    // Plugins register while they are initialised (the loading thread); hosts look up and
    // create from other threads too. Factories are called outside the lock: they are only
    // removed when their plugin is unloaded, after the algorithms are gone.
    mutable std::mutex m_mutex;
    std::vector<Owned<AlgorithmFactory>> m_algorithmFactories;
    std::vector<Owned<AlgorithmControllerFactory>> m_controllerFactories;
    std::vector<Owned<DataAnnotationFactory>> m_annotationFactories;
};

} // namespace Kestrion
