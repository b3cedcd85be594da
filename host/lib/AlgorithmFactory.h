#pragma once

#include "host/core/Algorithm.h"
#include "host/core/Properties.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Kestrion {

/// Offers algorithms by name. Plugins derive from it, register their algorithms in the
/// constructor and hand the factory to the host with KestrionLibPlugin::registerFactories. The
/// host identifies an algorithm as "<prefix>.<name>" (for example "Atracsys.SpryTrackStream").
class AlgorithmFactory {
public:
    /// Whether an algorithm can work on the given input data.
    using Compatibility = std::function<bool(const DataList&)>;
    /// Makes a new algorithm for the given input data.
    using Creator = std::function<std::unique_ptr<Algorithm>(const DataList&)>;

    struct Entry {
        std::string name;
        /// Where the algorithm appears in menus: ';'-separated levels, "IO;Atracsys Tracking;SpryTrack".
        std::string guiPath;
        /// Free-form tags that hosts may interpret (none are required).
        std::set<std::string> attributes;
        /// Configured into every new instance before anything else; none when empty.
        std::optional<Properties> defaultProperties;
        Compatibility compatible;
        Creator create;
    };

    /// `listed`: the factory's algorithms appear in the hosts' algorithm lists (menus of the
    /// desktop host, `kestrion plugins`). An unlisted factory offers algorithms that are only
    /// created by identifier, from workspaces or code.
    AlgorithmFactory(std::string prefix, bool listed);
    virtual ~AlgorithmFactory();
    AlgorithmFactory(const AlgorithmFactory&) = delete;
    AlgorithmFactory& operator=(const AlgorithmFactory&) = delete;

    const std::string& prefix() const { return m_prefix; }
    bool listed() const { return m_listed; }
    /// "<prefix>.<name>".
    std::string identifier(const std::string& name) const;

    /// Registers an algorithm. False (with a warning, category "AlgorithmFactory") when the name
    /// is empty or already registered here, or there is no creator. A missing compatibility
    /// predicate means acceptsNoInput().
    bool registerAlgorithm(Entry entry);
    /// Registers algorithm class A, created with its default constructor.
    template <class A>
    bool registerAlgorithm(const std::string& name, const std::string& guiPath,
                           std::set<std::string> attributes = {},
                           std::optional<Properties> defaultProperties = std::nullopt,
                           Compatibility compatible = acceptsNoInput()) {
        return registerAlgorithm(
            Entry{name, guiPath, std::move(attributes), std::move(defaultProperties), std::move(compatible),
                  [](const DataList&) -> std::unique_ptr<Algorithm> { return std::make_unique<A>(); }});
    }

    /// The registered algorithms in registration order.
    const std::vector<Entry>& algorithms() const { return m_entries; }
    const Entry* find(const std::string& name) const;
    /// Names of the algorithms that accept the data, in registration order.
    std::vector<std::string> compatibleAlgorithms(const DataList& data) const;

    /// A new instance of algorithm `name` for the data, configured with its default properties;
    /// null (with a warning, category "AlgorithmFactory") when the name is unknown, the data does
    /// not suit it, or the creator gives nothing.
    virtual std::unique_ptr<Algorithm> create(const std::string& name, const DataList& data = {}) const;

    /// The predicate of algorithms that take no input: accepts only an empty data list.
    static Compatibility acceptsNoInput();

private:
    std::string m_prefix;
    bool m_listed;
    std::vector<Entry> m_entries;
};

} // namespace Kestrion
