#pragma once

#include "recording/RecordCodec.h"
#include "recording/RecordingTypes.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace Kestrion::Recording {

/// Reads a recording file written by RecordingWriter, checking every record's length and
/// checksum. Problems are reported in error() as "recording <file>: frame <n>: <problem>" (frames
/// counted from 0), "recording <file>: header: <problem>" or, for a file that is not a recording
/// or too new, "recording <file>: <problem>".
///
/// A recording cut short (a killed process, a full disk) reads up to its last whole frame: the
/// incomplete tail ends the frames like the end record does, and cutShort() tells so.
///
/// Not thread safe: one thread uses a reader.
class RecordingReader {
public:
    /// This program reads files of this format version and older.
    static constexpr std::uint16_t ReaderVersion = RecordCodec::Version;

    enum class Next { Frame, End, Failed };

    RecordingReader() = default;
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    /// Opens the file and reads its preamble and session header; false (see error()) when it is
    /// missing, not a recording, too new, or its header is damaged.
    bool open(const std::string& path);
    const SessionHeader& header() const { return m_header; }
    std::uint16_t version() const { return m_version; }

    /// Reads the next frame into `frame` (its buffers are reused); records of kinds this version
    /// does not know are skipped. End: no more frames (see cutShort()). Failed: see error().
    /// Without `images` the frame's images are checked but not decompressed (a quick pass over
    /// a recording, to index it).
    Next next(Frame& frame, bool images = true);
    /// File offset of the record next() reads next, for readFrameAt().
    std::uint64_t position() const { return m_position; }
    /// Reads the frame record at `offset`, a position() seen before the frame `number` (records
    /// of other kinds placed before the frame, geometries and gaps, are passed over).
    bool readFrameAt(std::uint64_t offset, std::uint64_t number, Frame& frame);

    std::uint64_t framesRead() const { return m_frames; }
    /// The geometries registered while the recording ran, read so far by next() (in order).
    const std::vector<AddedGeometry>& geometriesAdded() const { return m_geometriesAdded; }
    /// The gaps where the camera was lost and reopened, read so far by next() (in order).
    const std::vector<Gap>& gaps() const { return m_gaps; }
    /// The file ends without its end record: the recording was cut short.
    bool cutShort() const { return m_cutShort; }
    /// Frames the recorder dropped, from the end record (0 when cut short).
    std::uint64_t framesDropped() const { return m_dropped; }
    const std::string& error() const { return m_error; }

private:
    enum class Read { Record, Eof, Incomplete, Failed };
    Read readRecord(const std::string& where, std::uint8_t& type);
    bool fail(const std::string& message);

    std::FILE* m_file = nullptr;
    std::string m_path;
    std::string m_error;
    std::uint16_t m_version = 0;
    SessionHeader m_header;
    RecordCodec m_codec;
    std::vector<std::uint8_t> m_record; ///< Payload of the record read last.
    std::uint64_t m_position = 0;
    std::uint64_t m_frames = 0;
    std::vector<AddedGeometry> m_geometriesAdded;
    std::vector<Gap> m_gaps;
    std::uint64_t m_dropped = 0;
    bool m_cutShort = false;
    bool m_ended = false;
};

} // namespace Kestrion::Recording
