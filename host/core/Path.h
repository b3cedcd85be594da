#pragma once

#include <string>

namespace Kestrion::Filesystem {

/// A file system path held as UTF-8 text with '/' separators. The text is kept as given; the
/// lexical operations below work on it without touching the disk, except where noted.
class Path {
public:
    Path() = default;
    Path(std::string text);
    Path(const char* text);

    const std::string& str() const { return m_text; }
    bool empty() const { return m_text.empty(); }

    /// "a/b" joined with "c.ini" gives "a/b/c.ini"; an absolute other path replaces this one.
    Path join(const Path& other) const;
    Path operator/(const Path& other) const { return join(other); }

    /// The containing folder: "a/b/c.ini" -> "a/b", "/c.ini" -> "/", "c.ini" -> "".
    /// A trailing '/' does not count as a path element ("a/b/" -> "a").
    Path parent() const;
    /// The last element: "a/b/c.ini" -> "c.ini" ("a/b/" -> "b").
    std::string fileName() const;
    /// The file name without its last extension: "c.tar.gz" -> "c.tar", ".bashrc" -> ".bashrc".
    std::string baseName() const;
    /// The last extension without the dot: "c.tar.gz" -> "gz", "c" -> "", ".bashrc" -> "".
    std::string extension() const;

    bool isAbsolute() const;
    /// Lexically normalised: no "." elements, no repeated '/', ".." folded where possible,
    /// no trailing '/'. "" stays "", "a/.." gives ".".
    Path normalized() const;
    /// Absolute and normalised, relative paths taken against the current working directory.
    Path absolute() const;
    /// Absolute and normalised, relative paths taken against the given folder (itself made
    /// absolute against the current working directory when it is relative).
    Path absoluteFrom(const Path& folder) const;

    /// These ask the file system.
    bool exists() const;
    bool isFile() const;
    bool isDirectory() const;

    static Path currentDirectory();
    /// $HOME, else the password database entry of the current user.
    static Path homeDirectory();

    bool operator==(const Path& other) const { return m_text == other.m_text; }
    bool operator!=(const Path& other) const { return m_text != other.m_text; }
    bool operator<(const Path& other) const { return m_text < other.m_text; }

private:
    std::string m_text;
};

} // namespace Kestrion::Filesystem
