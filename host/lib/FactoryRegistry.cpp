#include "host/lib/FactoryRegistry.h"

#include "host/core/Log.h"
#include "host/lib/AlgorithmController.h"
#include "host/lib/AlgorithmControllerFactory.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/DataAnnotationFactory.h"

#include <algorithm>

namespace Kestrion {

namespace {

const char* const Category = "FactoryRegistry";

std::string ownerName(const std::string& owner) {
    return owner.empty() ? "the host" : "plugin " + owner;
}

template <class List>
std::size_t eraseOwned(List& list, const std::string& owner, List& removed) {
    auto middle =
        std::stable_partition(list.begin(), list.end(), [&owner](const auto& e) { return e.owner != owner; });
    const auto count = static_cast<std::size_t>(std::distance(middle, list.end()));
    std::move(middle, list.end(), std::back_inserter(removed));
    list.erase(middle, list.end());
    return count;
}

} // namespace

FactoryRegistry& FactoryRegistry::instance() {
    static FactoryRegistry registry;
    return registry;
}

FactoryRegistry::FactoryRegistry() = default;
FactoryRegistry::~FactoryRegistry() = default;

void FactoryRegistry::addAlgorithmFactory(std::unique_ptr<AlgorithmFactory> factory,
                                          const std::string& owner) {
    if (!factory)
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& entry : factory->algorithms()) {
        const std::string identifier = factory->identifier(entry.name);
        for (const auto& other : m_algorithmFactories)
            if (other.factory->find(entry.name) && other.factory->identifier(entry.name) == identifier)
                KESTRION_LOG_WARN(Category, "Algorithm " << identifier << " of " << ownerName(owner)
                                                         << " is already provided by "
                                                         << ownerName(other.owner) << ", which keeps it");
    }
    m_algorithmFactories.push_back({std::move(factory), owner});
}

void FactoryRegistry::addControllerFactory(std::unique_ptr<AlgorithmControllerFactory> factory,
                                           const std::string& owner) {
    if (!factory)
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_controllerFactories.push_back({std::move(factory), owner});
}

void FactoryRegistry::addAnnotationFactory(std::unique_ptr<DataAnnotationFactory> factory,
                                           const std::string& owner) {
    if (!factory)
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_annotationFactories.push_back({std::move(factory), owner});
}

std::size_t FactoryRegistry::removeOwnedBy(const std::string& owner) {
    // Destroyed after the lock is released: a factory's destructor is plugin code.
    std::vector<Owned<AlgorithmFactory>> algorithms;
    std::vector<Owned<AlgorithmControllerFactory>> controllers;
    std::vector<Owned<DataAnnotationFactory>> annotations;
    std::size_t count = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        count += eraseOwned(m_algorithmFactories, owner, algorithms);
        count += eraseOwned(m_controllerFactories, owner, controllers);
        count += eraseOwned(m_annotationFactories, owner, annotations);
    }
    return count;
}

std::vector<FactoryRegistry::AlgorithmInfo> FactoryRegistry::algorithms() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<AlgorithmInfo> result;
    for (const auto& owned : m_algorithmFactories)
        for (const auto& entry : owned.factory->algorithms())
            result.push_back({owned.factory->identifier(entry.name), entry.name, entry.guiPath, owned.owner,
                              owned.factory->listed(), owned.factory.get()});
    return result;
}

std::vector<FactoryRegistry::AlgorithmInfo> FactoryRegistry::algorithmsOf(const std::string& owner) const {
    auto all = algorithms();
    all.erase(
        std::remove_if(all.begin(), all.end(), [&owner](const AlgorithmInfo& a) { return a.owner != owner; }),
        all.end());
    return all;
}

std::vector<std::string> FactoryRegistry::compatibleAlgorithms(const DataList& data) const {
    std::vector<const AlgorithmFactory*> factories;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& owned : m_algorithmFactories)
            factories.push_back(owned.factory.get());
    }
    std::vector<std::string> identifiers;
    for (const AlgorithmFactory* factory : factories)
        for (const auto& name : factory->compatibleAlgorithms(data))
            identifiers.push_back(factory->identifier(name));
    return identifiers;
}

const AlgorithmFactory* FactoryRegistry::findLocked(const std::string& identifier, std::string* name) const {
    for (const auto& owned : m_algorithmFactories) {
        const std::string& prefix = owned.factory->prefix();
        if (identifier.size() <= prefix.size() + 1 || identifier.compare(0, prefix.size(), prefix) != 0 ||
            identifier[prefix.size()] != '.')
            continue;
        const std::string candidate = identifier.substr(prefix.size() + 1);
        if (owned.factory->find(candidate)) {
            *name = candidate;
            return owned.factory.get();
        }
    }
    return nullptr;
}

bool FactoryRegistry::hasAlgorithm(const std::string& identifier) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string name;
    return findLocked(identifier, &name) != nullptr;
}

std::unique_ptr<Algorithm> FactoryRegistry::createAlgorithm(const std::string& identifier,
                                                            const DataList& data) const {
    const AlgorithmFactory* factory = nullptr;
    std::string name;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        factory = findLocked(identifier, &name);
    }
    if (!factory) {
        KESTRION_LOG_DEBUG(Category, "No factory offers algorithm \"" << identifier << "\"");
        return nullptr;
    }
    return factory->create(name, data);
}

std::unique_ptr<AlgorithmController> FactoryRegistry::createController(Algorithm* algorithm) const {
    if (!algorithm)
        return nullptr;
    std::vector<AlgorithmControllerFactory*> order;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (bool preferred : {true, false})
            for (const auto& owned : m_controllerFactories)
                if (owned.factory->preferred() == preferred)
                    order.push_back(owned.factory.get());
    }
    for (AlgorithmControllerFactory* factory : order)
        if (AlgorithmController* controller = factory->create(algorithm))
            return std::unique_ptr<AlgorithmController>(controller);
    return nullptr;
}

std::vector<const DataAnnotationFactory*> FactoryRegistry::annotationFactories() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<const DataAnnotationFactory*> result;
    for (const auto& owned : m_annotationFactories)
        result.push_back(owned.factory.get());
    return result;
}

std::size_t FactoryRegistry::algorithmFactoryCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_algorithmFactories.size();
}

std::size_t FactoryRegistry::controllerFactoryCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_controllerFactories.size();
}

} // namespace Kestrion
