#pragma once

#include "recording/PartFile.h"
#include "recording/RecordCodec.h"
#include "recording/RecordingTypes.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace Kestrion::Recording {

/// Writes a recording file: the session header first, then one record per frame, then an end
/// record. The records go to "<file>.part", which finish() syncs to disk and renames to the file,
/// so that the file name only ever holds a finished recording; a recording cut short (a killed
/// process, a full disk) stays in the ".part" file and reads up to its last whole frame.
///
/// Not thread safe: one thread (the recorder's writer thread) uses it. It does the compression
/// and the disk writes, so it never runs on a thread that must not wait.
class RecordingWriter {
public:
    /// An unfinished ".part" file is closed as it is.
    RecordingWriter() = default;
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Creates "<file>.part" (never replacing an existing one) and writes the preamble and the
    /// session header. An existing file of the name is refused unless `replace`; it is replaced
    /// by finish(). False (see error()) on failure.
    bool open(const std::string& file, const SessionHeader& header, bool replace = false);
    /// Appends one frame (images compressed when the header says so); false once a write failed.
    bool write(const Frame& frame);
    /// Appends a geometry registered on the camera since the header (before the next frame
    /// written); false once a write failed.
    bool writeGeometry(const Geometry& geometry);
    /// Appends a gap where the camera was lost and reopened (before the next frame written);
    /// false once a write failed.
    bool writeGap(const Gap& gap);
    /// Hands what was written to the system, so that a killed process loses nothing written.
    bool flush();
    /// Writes the end record, syncs, closes and renames "<file>.part" to the file.
    bool finish(std::uint64_t dropped);

    bool isOpen() const { return m_file.isOpen(); }
    const std::string& error() const { return m_file.error(); }
    const std::string& partialFile() const { return m_file.partialFile(); }
    std::uint64_t framesWritten() const { return m_frames; }
    std::uint64_t bytesWritten() const { return m_bytes; }

private:
    bool put(RecordCodec::RecordType type);

    RecordCodec m_codec;
    PartFile m_file{"recording"};
    bool m_images = false;
    std::uint64_t m_frames = 0;
    std::uint64_t m_bytes = 0;
    std::vector<std::uint8_t> m_payload; ///< Reused for every record.
    std::vector<std::uint8_t> m_record;
};

} // namespace Kestrion::Recording
