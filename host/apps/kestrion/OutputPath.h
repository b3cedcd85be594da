#pragma once

#include <string>
#include <vector>

namespace Kestrion::Cli {

/// A file or folder that a command writes, checked before the command's work starts, so that a
/// bad path costs no camera connection and a failed run leaves nothing behind. Every output option
/// of the commands goes through it:
/// - a file output refuses a folder, a path that is not a regular file, a missing or read-only
///   parent folder, and an existing file or "<file>.part" (the partial file of an earlier run)
///   unless the user allowed replacing it (--force);
/// - a folder output refuses a file, a folder it could not create or write in, and a folder that
///   holds the output of an earlier run (entries matching its patterns) unless replacing is allowed.
/// Messages name the output and the path: "<what> <path>: <problem>".
class OutputPath {
public:
    enum class Kind { File, Folder };

    /// `what` names the output in messages, e.g. "CSV file" or "image folder".
    OutputPath(std::string what, std::string path, Kind kind);

    /// Name patterns (shell wildcards) of the entries of an earlier run in a folder output; by
    /// default any entry counts.
    void setEarlierOutputs(std::vector<std::string> patterns) { m_patterns = std::move(patterns); }

    /// True when the output can be written; `replace` allows replacing an earlier output. Touches
    /// nothing on disk. False sets error().
    bool check(bool replace);
    /// Removes the "<file>.part" of an earlier run of a file output (check() allowed replacing
    /// it), before the output is written. False sets error().
    bool removeEarlierPart();
    /// Creates a folder output (and its missing parents). False sets error().
    bool create();
    /// Removes the folders that create() made, when they are still empty.
    void removeIfUnused();

    const std::string& path() const { return m_path; }
    const std::string& error() const { return m_error; }

private:
    bool fail(const std::string& problem);
    bool checkFile(bool replace);
    bool checkFolder(bool replace);

    std::string m_what;
    std::string m_path;
    Kind m_kind;
    std::vector<std::string> m_patterns;
    std::vector<std::string> m_created; // deepest first
    std::string m_error;
};

} // namespace Kestrion::Cli
