#pragma once

#include "recording/PartFile.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion {
class DeviceFrameInfo;
class TrackingStreamData;
} // namespace Kestrion

namespace Kestrion::Cli {

/// Writes the poses of a tracking run as a tracking sequence: a MetaImage file whose header holds,
/// per frame, the frame number, the timestamp and, per instrument, its transform to the camera
/// and its status, the layout that the field's applications read as a sequence (3D Slicer's
/// sequence import, see docs/recording-format.md):
///
///     Seq_Frame0000_FrameNumber = 0
///     Seq_Frame0000_Timestamp = 0.000000
///     Seq_Frame0000_atracsys-1000ToTrackerTransform = r11 r12 r13 x r21 r22 r23 y r31 r32 r33 z 0 0 0 1
///     Seq_Frame0000_atracsys-1000ToTrackerTransformStatus = OK
///     Seq_Frame0000_ImageStatus = INVALID
///
/// The transform name is the instrument id (see transformName()). An untracked instrument is
/// INVALID with its identity pose. The timestamp is in seconds since the first frame, from the
/// device's clock when the frame has it, else from the host's arrival time.
///
/// Written on the command's own thread (never the stream's worker) to "<file>.part", which
/// close() completes (frame count), syncs and renames to the file.
class TrackSequenceWriter {
public:
    TrackSequenceWriter() = default;
    TrackSequenceWriter(const TrackSequenceWriter&) = delete;
    TrackSequenceWriter& operator=(const TrackSequenceWriter&) = delete;

    /// Creates "<file>.part" and writes the header. False (see error()) on failure.
    bool open(const std::string& file);
    /// Appends one frame; false once a write has failed.
    bool write(std::uint64_t frameIndex, const TrackingStreamData& frame, const DeviceFrameInfo* device);
    /// Writes the frame count, syncs, closes and renames to the file. False (see error()).
    bool close();
    /// Closes and removes "<file>.part" when no frame was written in it.
    void discard();

    /// The transform name of an instrument id: the id, with any character other than a letter, a
    /// digit, '-', '_' or '.' made a '-' ("my tool" -> "my-tool").
    static std::string transformName(const std::string& instrumentId);

    bool isOpen() const { return m_file.isOpen(); }
    bool failed() const { return m_file.failed(); }
    const std::string& error() const { return m_file.error(); }
    std::uint64_t framesWritten() const { return m_frames; }
    const std::string& partialFile() const { return m_file.partialFile(); }

private:
    Recording::PartFile m_file{"sequence file"};
    long m_countAt = 0; ///< Where the frame count stands in the header.
    std::uint64_t m_frames = 0;
    bool m_hasOrigin = false;
    bool m_deviceClock = false;
    std::uint64_t m_originUS = 0;
    std::vector<char> m_line; ///< Reused for every line.
};

} // namespace Kestrion::Cli
