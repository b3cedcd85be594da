#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Kestrion::Recording {
class PartFile;
}

namespace Kestrion::Cli {

/// The rows of an output file on their way to its ".part" file, in whole rows. Rows are appended
/// in memory and handed to the system by flush(), which the command calls at least once a second
/// (and which an append makes itself once a megabyte waits), so that a killed or crashed run
/// leaves every row up to the last flush and memory stays flat however long the run. The rows
/// are written by the file descriptor, not through the stream's buffer: when a write fails (a
/// full disk), the part of it that reached the file is cut off again, so that the file holds
/// exactly the rows counted in rowsOnDisk(), and the file's error says how many.
///
/// Used on the command's thread only (never the stream's worker).
class PendingRows {
public:
    /// `unit` names what a row is in the error ("rows", "frames"). The file is open, and what was
    /// written through its stream so far (a header) counts as on disk once flushed.
    PendingRows(Recording::PartFile& file, std::string unit);

    /// Appends text holding `rows` whole rows (0 for a part of a row still to come).
    void append(const char* text, std::size_t size, std::uint64_t rows);
    /// Hands the pending text to the system. False (the file's error set) when a write failed;
    /// nothing is written after that.
    bool flush();

    std::uint64_t rowsOnDisk() const { return m_rowsOnDisk; }
    std::size_t pendingBytes() const { return m_pending.size(); }

private:
    Recording::PartFile& m_file;
    std::string m_unit;
    std::string m_pending;
    std::uint64_t m_pendingRows = 0;
    std::uint64_t m_rowsOnDisk = 0;
    long long m_bytesOnDisk = -1; ///< the file's size up to the last whole row (-1: not known yet)
};

} // namespace Kestrion::Cli
