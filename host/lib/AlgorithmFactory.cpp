#include "host/lib/AlgorithmFactory.h"

#include "host/core/Log.h"

#include <utility>

namespace Kestrion {

namespace {
const char* const Category = "AlgorithmFactory";
}

AlgorithmFactory::AlgorithmFactory(std::string prefix, bool listed)
    : m_prefix(std::move(prefix))
    , m_listed(listed) {}

AlgorithmFactory::~AlgorithmFactory() = default;

std::string AlgorithmFactory::identifier(const std::string& name) const {
    return m_prefix + "." + name;
}

AlgorithmFactory::Compatibility AlgorithmFactory::acceptsNoInput() {
    return [](const DataList& data) { return data.empty(); };
}

bool AlgorithmFactory::registerAlgorithm(Entry entry) {
    if (entry.name.empty()) {
        KESTRION_LOG_WARN(Category,
                          "Factory " << m_prefix << ": an algorithm without a name is not registered");
        return false;
    }
    if (find(entry.name)) {
        KESTRION_LOG_WARN(Category, "Factory " << m_prefix << ": algorithm " << identifier(entry.name)
                                               << " is already registered");
        return false;
    }
    if (!entry.create) {
        KESTRION_LOG_WARN(Category, "Factory " << m_prefix << ": algorithm " << identifier(entry.name)
                                               << " has no creator and is not registered");
        return false;
    }
    if (!entry.compatible)
        entry.compatible = acceptsNoInput();
    m_entries.push_back(std::move(entry));
    return true;
}

const AlgorithmFactory::Entry* AlgorithmFactory::find(const std::string& name) const {
    for (const auto& entry : m_entries)
        if (entry.name == name)
            return &entry;
    return nullptr;
}

std::vector<std::string> AlgorithmFactory::compatibleAlgorithms(const DataList& data) const {
    std::vector<std::string> names;
    for (const auto& entry : m_entries)
        if (entry.compatible(data))
            names.push_back(entry.name);
    return names;
}

std::unique_ptr<Algorithm> AlgorithmFactory::create(const std::string& name, const DataList& data) const {
    const Entry* entry = find(name);
    if (!entry) {
        KESTRION_LOG_WARN(Category, "Factory " << m_prefix << " has no algorithm " << identifier(name));
        return nullptr;
    }
    if (!entry->compatible(data)) {
        KESTRION_LOG_WARN(Category,
                          "Algorithm " << identifier(name) << " does not accept the given input data");
        return nullptr;
    }
    std::unique_ptr<Algorithm> algorithm = entry->create(data);
    if (!algorithm) {
        KESTRION_LOG_WARN(Category, "Algorithm " << identifier(name) << " could not be created");
        return nullptr;
    }
    algorithm->setName(name);
    algorithm->setIdentifier(identifier(name));
    if (entry->defaultProperties)
        algorithm->configure(&*entry->defaultProperties);
    return algorithm;
}

} // namespace Kestrion
