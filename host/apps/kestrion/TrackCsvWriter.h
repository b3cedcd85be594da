#pragma once

#include "host/apps/kestrion/PendingRows.h"
#include "recording/PartFile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {
class DeviceFrameInfo;
class TrackingStreamData;
} // namespace Kestrion

namespace Kestrion::Cli {

/// Records tracking frames as CSV, one row per instrument per frame:
///
///     frame,device_counter,arrival_ms,device_ms,device_time_us,capture_us,instrument,name,tracked,
///     quality,x_mm,y_mm,z_mm,r11,r12,r13,r21,r22,r23,r31,r32,r33,registration_error_mm,status,reason
///
/// The times of a frame: arrival_ms (ms since the epoch, UTC) when the host received it;
/// device_ms the frame's device timestamp as the stream reports it (ms since the epoch);
/// device_counter and device_time_us the device's own frame counter and clock (microseconds on
/// the device's clock, empty when unknown); capture_us when the camera captured the frame, on the
/// host's clock (µs since the epoch, UTC: the device's clock mapped by the stream, free of the
/// delivery delay; the arrival time when the stream gives no capture time, frameTimeUS()). The
/// pose is the instrument's rotation (row-major) and translation; an untracked instrument
/// (isInstrumentTracked) has tracked 0, quality 0 and empty pose fields. The next three come from
/// the frame's instrument status (empty without it): the registration error while tracked, the
/// state's short name and the reason in words. Opened with tip columns, each row ends with
/// tip_x_mm,tip_y_mm,tip_z_mm: the instrument's tool tip in camera coordinates (empty when it has
/// none in that frame).
///
/// The rows go to "<file>.part" in whole rows: flush() (at least once a second, by the command)
/// hands them to the system, so that a killed run leaves every row up to the last flush; close()
/// flushes, syncs and renames it to the file, so that the file name only ever holds a complete
/// recording. The first failing write ends the recording; error() then names the file, the rows
/// the ".part" file holds (exactly those: a row written in part is cut off) and the reason.
class TrackCsvWriter {
public:
    TrackCsvWriter() = default;
    TrackCsvWriter(const TrackCsvWriter&) = delete;
    TrackCsvWriter& operator=(const TrackCsvWriter&) = delete;

    /// Creates "<file>.part" and writes the header. False (see error()) on failure, also when
    /// "<file>.part" exists already: it is not ours to replace.
    /// `referenceColumns`: the columns of the poses in a reference's frame follow.
    bool open(const std::string& file, bool tipColumns = false, bool referenceColumns = false);
    /// Appends the rows of one frame; false once a write has failed.
    bool write(std::uint64_t frameIndex, const TrackingStreamData& frame, const DeviceFrameInfo* device);
    /// Hands the rows appended so far to the system; false once a write has failed.
    bool flush();
    /// Flushes, syncs and closes the file and gives it its name. False (see error()) on failure
    /// or after a failed write; then "<file>.part" is kept.
    bool close();
    /// Closes and removes "<file>.part" when nothing was recorded in it (tracking never began).
    void discard();

    bool isOpen() const { return m_file.isOpen(); }
    bool failed() const { return m_file.failed(); }
    const std::string& error() const { return m_file.error(); }
    std::uint64_t rowsWritten() const { return m_rows; }
    const std::string& partialFile() const { return m_file.partialFile(); }

private:
    Recording::PartFile m_file{"CSV file"};
    std::optional<PendingRows> m_pending; // from open()
    std::uint64_t m_rows = 0;
    bool m_tipColumns = false;
    bool m_referenceColumns = false;
    std::vector<char> m_line; // reused for every row
};

} // namespace Kestrion::Cli
