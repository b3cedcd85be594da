#pragma once

#include "host/core/Path.h"
#include "host/core/Properties.h"

#include <optional>
#include <string>

namespace Kestrion {

/// Reads and writes Properties trees as XML:
///
///     <?xml version="1.0" encoding="UTF-8"?>
///     <properties name="Workspace">
///         <param name="maxFiducialMarkerDistance" type="double">100</param>
///         <param name="queryImages" type="bool" hidden="true">false</param>
///         <properties name="TrackingTargets" hidden="true">
///             <properties name="marker 1000">
///                 <param name="Path" type="string">geometry1000.ini</param>
///             </properties>
///         </properties>
///     </properties>
///
/// Further XML attributes of <param> and <properties> are the parameter's or block's attributes.
/// Reading is all or nothing: a malformed document gives no tree, an Error with the source, line,
/// column and reason, and an error line under the category "Properties".
class PropertiesXml {
public:
    struct Error {
        std::string source; ///< file path, or the name given for text
        long long line = 0; ///< 1-based; 0 when the file could not be opened
        long long column = 0;
        std::string reason;
        /// "source:line:column: reason"
        std::string message() const;
    };

    /// Reads a file; the tree's base folder is set to the file's absolute folder.
    static std::optional<Properties> readFile(const Filesystem::Path& file, Error* error = nullptr);
    /// Reads XML text; sourceName names it in errors. No base folder is set.
    static std::optional<Properties>
    readString(const std::string& xml, const std::string& sourceName = "<text>", Error* error = nullptr);

    /// The XML text, or nothing (with an error logged) when the tree holds text that XML cannot
    /// carry: invalid UTF-8 or control characters other than tab, line feed and carriage return.
    static std::optional<std::string> toString(const Properties& properties);
    /// Writes the XML through Filesystem::File::writeText (an existing file is replaced whole or
    /// not at all). False, with an error logged, on failure.
    static bool writeFile(const Properties& properties, const Filesystem::Path& file);
};

} // namespace Kestrion
