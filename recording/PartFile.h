#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace Kestrion::Recording {

/// An output file written under "<file>.part" and given its name only when complete, so that the
/// file name only ever holds a whole recording (a session recording, a CSV or sequence file). The first
/// failure is kept as the error, naming the file's kind and path and the reason; the ".part" file then stays
/// with what was written.
class PartFile {
public:
    /// `kind` names the file in errors ("recording", "CSV file", "sequence file").
    explicit PartFile(std::string kind)
        : m_kind(std::move(kind)) {}
    /// An open file that was not completed keeps its ".part" file as it is.
    ~PartFile();
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    /// Creates "<file>.part" with a large write buffer. False (see error()) on failure, also when
    /// "<file>.part" exists already: it is not ours to replace; and, unless `replace`, when the
    /// file exists (complete() would replace it).
    bool open(const std::string& file, bool replace = true);
    /// Flushes, syncs and closes the file and gives it its name. False (see error()) on failure
    /// or after an earlier failure; then "<file>.part" is kept.
    bool complete();
    /// Closes the file; removes "<file>.part" when `unused` (nothing was recorded in it).
    void discard(bool unused);
    /// Records the first failure: "<kind> <file>: <what>: <reason of errorNumber>"; returns false.
    bool fail(const std::string& what, int errorNumber);

    std::FILE* stream() const { return m_file; }
    bool isOpen() const { return m_file != nullptr; }
    bool failed() const { return !m_error.empty(); }
    const std::string& error() const { return m_error; }
    const std::string& partialFile() const { return m_partialFile; }

private:
    std::string m_kind;
    std::FILE* m_file = nullptr;
    std::string m_target;
    std::string m_partialFile;
    std::string m_error;
    std::vector<char> m_buffer;
};

} // namespace Kestrion::Recording
