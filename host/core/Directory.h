#pragma once

#include "host/core/Path.h"

#include <string>
#include <vector>

namespace Kestrion::Filesystem {

/// A folder on disk.
class Directory {
public:
    explicit Directory(Path path);

    const Path& path() const { return m_path; }
    /// The path of an entry of this folder (it need not exist).
    Path filePath(const std::string& name) const { return m_path.join(name); }

    bool exists() const;
    /// Creates the folder and any missing parents. True when the folder exists afterwards;
    /// a failure is logged with the folder and the reason.
    bool create() const;
    /// The regular files (or links to them) of this folder whose names match a shell wildcard
    /// pattern ('*', '?', "[...]"; e.g. "geometry*.ini"), sorted by name. Names beginning with a
    /// dot match only a pattern that begins with a dot. An absent folder gives an empty list;
    /// an unreadable one also logs an error.
    std::vector<Path> files(const std::string& pattern = "*") const;

private:
    Path m_path;
};

} // namespace Kestrion::Filesystem
