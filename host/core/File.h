#pragma once

#include "host/core/Path.h"

#include <optional>
#include <string>

namespace Kestrion::Filesystem {

/// Whole-file reading and writing.
class File {
public:
    /// Writes the text to a temporary file in the target's folder, flushes it to disk and
    /// renames it over the target, so that the target holds either its old content or the
    /// whole new text, never a truncated mix. An existing target keeps its permissions; a
    /// symbolic link is written through to the file it points to. On failure the temporary
    /// file is removed, the target is untouched and an error naming the file and the reason
    /// is logged; the reason (e.g. "cannot create a file in its folder: Permission denied") is
    /// also stored in *reason when given.
    static bool writeText(const Path& path, const std::string& text, std::string* reason = nullptr);
    /// The whole content, or nothing (with an error logged) when the file cannot be read; the
    /// reason (e.g. "No such file or directory") is also stored in *reason when given.
    static std::optional<std::string> readText(const Path& path, std::string* reason = nullptr);
    /// Removes a file; true when it is gone afterwards (also when it never existed).
    static bool remove(const Path& path);
};

} // namespace Kestrion::Filesystem
