#include "host/lib/Workspace.h"

#include "host/core/Log.h"
#include "host/core/PropertiesXml.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/WorkspaceConversionRegistry.h"

#include <algorithm>
#include <iterator>

namespace Kestrion {

namespace {
const char* const Category = "Workspace";
}

Workspace::Workspace() = default;

Workspace::~Workspace() {
    clear();
}

void Workspace::clear() {
    while (!m_items.empty())
        m_items.pop_back();
    m_document = Properties("Workspace");
}

void Workspace::add(std::string identifier, std::unique_ptr<Algorithm> algorithm) {
    Item item;
    item.identifier = std::move(identifier);
    item.algorithm = std::move(algorithm);
    m_items.push_back(std::move(item));
}

Workspace::LoadReport Workspace::load(const Filesystem::Path& file) {
    return load(file, FactoryRegistry::instance());
}

Workspace::LoadReport Workspace::load(const Filesystem::Path& file, const FactoryRegistry& registry,
                                      bool compute) {
    clear();
    m_file = file.str();
    LoadReport report;
    auto problem = [&report](const std::string& message) {
        KESTRION_LOG_ERROR(Category, message);
        report.errors.push_back(message);
    };

    if (!file.isFile()) {
        problem("Cannot load workspace " + file.str() + ": " +
                (file.exists() ? "not a file" : "no such file"));
        return report;
    }
    PropertiesXml::Error xmlError;
    std::optional<Properties> tree = PropertiesXml::readFile(file, &xmlError);
    if (!tree) {
        problem("Cannot load workspace " + file.str() + ": " + xmlError.message());
        return report;
    }

    std::string conversionError;
    auto applied = WorkspaceConversionRegistry::instance().convert(*tree, file, &conversionError);
    if (!applied) {
        problem("Cannot load workspace " + file.str() + ": " + conversionError);
        return report;
    }
    report.conversions = std::move(*applied);

    const Properties* algorithms = tree->subProperty("Algorithms");
    if (!algorithms) {
        problem("Cannot load workspace " + file.str() + ": no \"Algorithms\" block");
        return report;
    }
    report.read = true;

    for (const Properties* block : algorithms->subProperties()) {
        Item item;
        item.identifier = block->name();
        item.algorithm = registry.createAlgorithm(item.identifier);
        if (!item.algorithm) {
            problem("Workspace " + file.str() + ": unknown algorithm \"" + item.identifier + "\"");
            item.unresolved = block->clone();
            m_items.push_back(std::move(item));
            continue;
        }
        ++report.created;
        item.loaded = block->clone();
        try {
            item.algorithm->configure(block);
            if (!compute) {
                m_items.push_back(std::move(item));
                continue;
            }
            item.algorithm->compute();
            if (item.algorithm->status() == Algorithm::Success)
                item.computed = true;
            else
                problem("Workspace " + file.str() + ": algorithm " + item.identifier + " failed (status " +
                        std::to_string(item.algorithm->status()) + ")");
            warnUnknownParameters(item);
        } catch (const std::exception& e) {
            problem("Workspace " + file.str() + ": algorithm " + item.identifier + " failed: " + e.what());
        }
        report.computed += item.computed ? 1 : 0;
        m_items.push_back(std::move(item));
    }
    const std::size_t total = algorithms->subProperties().size();
    tree->removeSubProperties(algorithms);
    m_document = std::move(*tree);
    if (compute)
        KESTRION_LOG_INFO(Category, "Workspace " << file.str() << ": " << report.computed << " of " << total
                                                 << " algorithms computed");
    else
        KESTRION_LOG_INFO(Category, "Workspace " << file.str() << ": " << report.created << " of " << total
                                                 << " algorithms created");
    return report;
}

Properties Workspace::toProperties() const {
    Properties root(m_document);
    Properties* algorithms = root.addSubProperties("Algorithms");
    for (const auto& item : m_items) {
        if (item.algorithm)
            item.algorithm->configuration(algorithms->addSubProperties(item.identifier));
        else if (item.unresolved)
            algorithms->addSubProperties(*item.unresolved);
    }
    return root;
}

std::vector<std::string> Workspace::warnUnknownParameters(const Item& item) const {
    std::vector<std::string> unknown;
    if (!item.algorithm || !item.loaded)
        return unknown;
    Properties configuration;
    item.algorithm->configuration(&configuration);
    std::vector<std::string> known = configuration.paramNames();
    for (const Properties* block : static_cast<const Properties&>(configuration).subProperties())
        known.push_back(block->name());
    for (const std::string& key : item.algorithm->optionalParameterNames())
        known.push_back(key);
    // The flags of the host's stream-creating algorithms, read when they compute.
    const char* const flags[] = {"open", "autoOpen", "connect", "start", "autoStart"};
    std::string knownText;
    for (const std::string& key : known)
        knownText += (knownText.empty() ? "" : ", ") + key;
    const auto isKnown = [&](const std::string& key) {
        return std::find(known.begin(), known.end(), key) != known.end() ||
               std::find(std::begin(flags), std::end(flags), key) != std::end(flags);
    };
    std::vector<std::string> keys = item.loaded->paramNames();
    for (const Properties* block : static_cast<const Properties&>(*item.loaded).subProperties())
        keys.push_back(block->name());
    for (const std::string& key : keys)
        if (!isKnown(key)) {
            unknown.push_back(key);
            KESTRION_LOG_WARN(Category, "Workspace " << m_file << ": algorithm " << item.identifier
                                                     << " knows no parameter \"" << key
                                                     << "\" (its parameters: " << knownText << ")");
        }
    return unknown;
}

bool Workspace::save(const Filesystem::Path& file) const {
    if (!PropertiesXml::writeFile(toProperties(), file)) {
        KESTRION_LOG_ERROR(Category, "Cannot save workspace " << file.str());
        return false;
    }
    return true;
}

} // namespace Kestrion
