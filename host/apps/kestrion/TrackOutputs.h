#pragma once

#include "host/apps/kestrion/OutputPath.h"
#include "host/apps/kestrion/TrackCsvWriter.h"
#include "host/apps/kestrion/TrackImageSaver.h"
#include "host/apps/kestrion/TrackSequenceWriter.h"
#include "host/stream/state/RecordingStatus.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace Kestrion {
class CompoundStreamData;
class TrackingStreamData;
} // namespace Kestrion

namespace Kestrion::Cli {

struct TrackOptions;

/// The files of a `kestrion track` run: the CSV, the tracking sequence, the saved camera images
/// and the session recording (written by the camera stream itself; checked and reported here).
/// Used on the command's thread only, never on the stream's worker.
///
/// Until keep() is called (tracking began), the destructor leaves nothing behind: no file and no
/// folder that open() made.
class TrackOutputs {
public:
    TrackOutputs(const TrackOptions& options, std::ostream& out, std::ostream& err);
    ~TrackOutputs();
    TrackOutputs(const TrackOutputs&) = delete;
    TrackOutputs& operator=(const TrackOutputs&) = delete;

    /// Checks every output path, then opens the files and makes the image folder. False after a
    /// message on err. Called before the camera opens, so that a bad path costs no connection.
    /// `referenceColumns`: the CSV file has the columns of the poses in a reference's frame.
    bool open(bool tipColumns, bool referenceColumns = false);
    /// Tracking began: the files stay from now on, whatever happens.
    void keep() { m_kept = true; }

    bool savesImages() const { return m_images.has_value(); }
    /// Writes one frame (the compound data when it carries the images to save). The first failure
    /// of each output is said on err; the others go on.
    void write(std::uint64_t frameIndex, const TrackingStreamData& frame, const CompoundStreamData* compound);
    /// Hands the rows and frames written so far to the system (called at least once a second).
    void flush();
    /// Completes the files and says what each holds on out, or why not on err. `recording` is
    /// what the stream says of its session recording (none: it gave nothing, the file tells).
    void finish(const std::optional<RecordingStatus>& recording);
    /// An output failed (said on err).
    bool failed() const { return m_failed; }

private:
    bool reportRecording(const std::optional<RecordingStatus>& recording);
    void reportWriteFailures();

    const TrackOptions& m_options;
    std::ostream& m_out;
    std::ostream& m_err;
    OutputPath m_csvPath;
    OutputPath m_imagesPath;
    OutputPath m_recordPath;
    OutputPath m_sequencePath;
    TrackCsvWriter m_csv;
    TrackSequenceWriter m_sequence;
    std::optional<TrackImageSaver> m_images;
    bool m_kept = false;
    bool m_csvReported = false;
    bool m_sequenceReported = false;
    bool m_failed = false;
};

} // namespace Kestrion::Cli
