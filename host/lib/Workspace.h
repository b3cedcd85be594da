#pragma once

#include "host/core/Algorithm.h"
#include "host/core/Path.h"
#include "host/core/Properties.h"

#include <memory>
#include <string>
#include <vector>

namespace Kestrion {

class FactoryRegistry;

/// A set of configured algorithms, saved as a ".kws" file: a Properties XML file whose root
/// holds an "Algorithms" block with one child per algorithm, named by the algorithm's
/// identifier and holding its configuration:
///
///     <properties name="Workspace">
///         <properties name="Algorithms">
///             <properties name="Atracsys.SpryTrackStream">
///                 <param name="open" type="bool">true</param>
///             </properties>
///         </properties>
///     </properties>
///
/// Loading reads the file, runs the workspace conversions, then for each child in order creates
/// the algorithm through the FactoryRegistry, configures it with the child block and computes
/// it. Problems are logged (error, category "Workspace") and collected in the load report; the
/// other algorithms are still loaded.
///
/// Nothing of a loaded file is lost on save: an algorithm that no factory offers is kept as its
/// configuration block and written back as it was, an algorithm whose computation failed keeps
/// its place, and blocks of the file other than "Algorithms" are written back unchanged.
class Workspace {
public:
    struct Item {
        std::string identifier;
        /// Null when no factory offers the identifier.
        std::unique_ptr<Algorithm> algorithm;
        /// The configuration as read, for an algorithm that could not be created.
        std::unique_ptr<Properties> unresolved;
        /// compute() ran and the algorithm reported success.
        bool computed = false;
        /// The configuration as read, for an algorithm that was created.
        std::unique_ptr<Properties> loaded;
    };

    struct LoadReport {
        /// The file was read, converted and has an "Algorithms" block.
        bool read = false;
        /// Descriptions of the conversions that changed the workspace.
        std::vector<std::string> conversions;
        /// One line per problem, naming the file.
        std::vector<std::string> errors;
        std::size_t created = 0;
        std::size_t computed = 0;
        bool ok() const { return read && errors.empty(); }
    };

    Workspace();
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    /// Replaces the workspace's algorithms by those of the file (see above).
    LoadReport load(const Filesystem::Path& file);
    /// With `compute` false the algorithms are created and configured but not computed (a host
    /// that computes them elsewhere, off its GUI thread).
    LoadReport load(const Filesystem::Path& file, const FactoryRegistry& registry, bool compute = true);

    /// Writes every algorithm's configuration under its identifier. False (logged) on failure.
    bool save(const Filesystem::Path& file) const;
    /// The parameters of the item's configuration as read that its algorithm does not know: not
    /// among the keys its configuration now holds, nor the open and start flags of the host's
    /// stream-creating algorithms. Each is logged at warning level (category "Workspace") as
    /// "Workspace <file>: algorithm <identifier> knows no parameter "<key>" (its parameters: a,
    /// b, ...)". Ask once the algorithm has computed: a stream reports its keys once it exists.
    std::vector<std::string> warnUnknownParameters(const Item& item) const;
    /// The tree save() writes.
    Properties toProperties() const;

    void add(std::string identifier, std::unique_ptr<Algorithm> algorithm);
    const std::vector<Item>& algorithms() const { return m_items; }
    /// Destroys the algorithms, last first, and forgets the loaded file's other blocks.
    void clear();

private:
    std::vector<Item> m_items;
    std::string m_file;                 // the file loaded last
    Properties m_document{"Workspace"}; // the loaded file without its algorithms
};

} // namespace Kestrion
