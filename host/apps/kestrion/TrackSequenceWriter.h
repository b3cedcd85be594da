#pragma once

#include "host/apps/kestrion/PendingRows.h"
#include "recording/PartFile.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Kestrion {
class TrackingStreamData;
} // namespace Kestrion

namespace Kestrion::Cli {

/// Writes the poses of a tracking run as a tracking sequence: a MetaImage file whose header holds,
/// per frame, the frame number, the timestamp and, per instrument, its transform to the camera
/// and its status, the layout that the field's applications read as a sequence (3D Slicer's
/// sequence import with the SlicerIGSIO extension, see docs/recording-format.md):
///
///     Seq_Frame0000_FrameNumber = 0
///     Seq_Frame0000_Timestamp = 0.000000
///     Seq_Frame0000_Atracsys1000ToTrackerTransform = r11 r12 r13 x r21 r22 r23 y r31 r32 r33 z 0 0 0 1
///     Seq_Frame0000_Atracsys1000ToTrackerTransformStatus = OK
///     Seq_Frame0000_ImageStatus = INVALID
///
/// The transform name of an instrument is its transform name in the frame's InstrumentNames (the
/// user's name, else the safe form of the id: letters and digits, first letter upper case), so
/// that it survives the importer's rule (split `<From>To<To>Transform`, capitalise, look up again
/// case-sensitively). It is fixed for the file at the instrument's first frame, and made unique
/// (a number appended) when two instruments would get the same. An untracked instrument
/// (isInstrumentTracked) is INVALID with its identity pose. The timestamp is in seconds since the
/// first frame, from the frames' capture times (frameTimeUS(): the arrival when a frame has none).
///
/// Written on the command's own thread (never the stream's worker) to "<file>.part", in whole
/// frames handed to the system by flush() (at least once a second, by the command): a killed run
/// leaves the frames up to the last flush, under a header whose frame count is still 0 (the
/// count is written by close(), which syncs and renames the file).
class TrackSequenceWriter {
public:
    TrackSequenceWriter() = default;
    TrackSequenceWriter(const TrackSequenceWriter&) = delete;
    TrackSequenceWriter& operator=(const TrackSequenceWriter&) = delete;

    /// Creates "<file>.part" and writes the header. False (see error()) on failure.
    bool open(const std::string& file);
    /// Appends one frame; false once a write has failed.
    bool write(std::uint64_t frameIndex, const TrackingStreamData& frame);
    /// Hands the frames appended so far to the system (whole frames); false once a write failed.
    bool flush();
    /// Writes the frame count, syncs, closes and renames to the file. False (see error()).
    bool close();
    /// Closes and removes "<file>.part" when no frame was written in it.
    void discard();

    bool isOpen() const { return m_file.isOpen(); }
    bool failed() const { return m_file.failed(); }
    const std::string& error() const { return m_file.error(); }
    std::uint64_t framesWritten() const { return m_frames; }
    const std::string& partialFile() const { return m_file.partialFile(); }

private:
    const std::string& transformName(const TrackingStreamData& frame, const std::string& instrumentId);
    template <typename... Args>
    void appendLine(const char* format, Args... args);

    Recording::PartFile m_file{"sequence file"};
    std::optional<PendingRows> m_pending; // from open()
    std::string m_frameText;              ///< The lines of the frame being written.
    long m_countAt = 0;                   ///< Where the frame count stands in the header.
    std::uint64_t m_frames = 0;
    bool m_hasOrigin = false;
    std::uint64_t m_originUS = 0;
    std::map<std::string, std::string> m_names; ///< instrument id -> its transform name in this file
    std::set<std::string> m_usedNames;
    std::vector<char> m_line; ///< Reused for every line.
};

} // namespace Kestrion::Cli
