#pragma once

#include "host/core/Path.h"
#include "host/core/Properties.h"

#include <functional>
#include <string>

namespace Kestrion {

/// A change applied to workspaces written by older hosts or plugins when they are loaded, for
/// example the renaming of an algorithm. Added with WorkspaceConversionRegistry::addConversion.
struct WorkspaceConversion {
    /// What the conversion does, shown when it changed a workspace.
    std::string description;
    /// Conversions run in ascending order of this number (equal numbers in the order they were
    /// added). By convention it is the running number of the conversion in the history of the
    /// workspace format, so that a conversion sees the result of all older ones.
    int order = 0;
    /// Converts the workspace tree read from `file` in place; returns true when it changed
    /// anything.
    std::function<bool(Properties& workspace, const Filesystem::Path& file)> convert;
};

} // namespace Kestrion
