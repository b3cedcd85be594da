#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace Kestrion::SpryTrack::AtracsysHelpers {

/// In-memory model of an INI text: sections of key/value pairs, read from a character buffer
/// and written back as text. Marker geometry files are read through it.
///
/// Strings are kept exactly as found (no trimming, no case folding). Sections and keys are
/// ordered byte-wise, so written text lists them sorted, not in file order.
class IniFile {
public:
    using Section = std::map<std::string, std::string>;

    /// Replaces the model with the text in `data`. Line feed ends a line, carriage returns are
    /// dropped, a NUL ends the whole text. Returns false at the first malformed line (sections
    /// read before it stay in the model). When the last line has no terminator within `size`
    /// bytes it is read up to the next NUL, so such a buffer must be NUL-terminated.
    bool parse(char* data, std::size_t size);

    /// Handles one line without its terminator: a section header, a key line of the current
    /// section, a blank line or a ';' comment. Returns 0 for a malformed line, non-zero otherwise.
    /// May trim the line in place.
    int parseLine(std::string& line);

    /// Index of the first NUL or line feed among the first `size` characters of `data`, with that
    /// character stored in `eolChar`; std::size_t(-1) when there is none (or `size` is 0).
    std::size_t findEOL(char& eolChar, char* data, std::size_t size);

    /// Writes the model as text into a new NUL-terminated buffer of `size` bytes (text length
    /// plus one). The caller releases `*out` with delete[]. False if `out` is null or the
    /// allocation fails.
    bool toBuffer(char** out, std::size_t& size);

    /// Writes the model as text into the file at `path`; false if it cannot be opened.
    bool save(std::string path);

    std::map<std::string, Section> sections;
    /// Section that key lines go to while parsing; empty before the first header.
    std::string currentSection;

private:
    std::string toText() const;
};

} // namespace Kestrion::SpryTrack::AtracsysHelpers
