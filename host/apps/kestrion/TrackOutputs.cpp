#include "host/apps/kestrion/TrackOutputs.h"

#include "host/apps/kestrion/TrackOptions.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/TrackingStreamData.h"

#include <QFileInfo>

namespace Kestrion::Cli {

TrackOutputs::TrackOutputs(const TrackOptions& options, std::ostream& out, std::ostream& err)
    : m_options(options)
    , m_out(out)
    , m_err(err)
    , m_csvPath("CSV file", options.csvFile, OutputPath::Kind::File)
    , m_imagesPath("image folder", options.imagesFolder, OutputPath::Kind::Folder)
    , m_recordPath("recording file", options.recordFile, OutputPath::Kind::File)
    , m_sequencePath("sequence file", options.sequenceFile, OutputPath::Kind::File) {
    m_imagesPath.setEarlierOutputs({"frame-*-left.png", "frame-*-right.png"});
}

TrackOutputs::~TrackOutputs() {
    if (m_kept)
        return;
    m_csv.discard();
    m_sequence.discard();
    m_imagesPath.removeIfUnused();
}

bool TrackOutputs::open(bool tipColumns, bool referenceColumns) {
    for (OutputPath* output : {&m_csvPath, &m_imagesPath, &m_recordPath, &m_sequencePath})
        if (!output->path().empty() && !output->check(m_options.force)) {
            m_err << "kestrion track: " << output->error() << "\n";
            return false;
        }
    for (OutputPath* output : {&m_csvPath, &m_recordPath, &m_sequencePath})
        if (!output->path().empty() && !output->removeEarlierPart()) {
            m_err << "kestrion track: " << output->error() << "\n";
            return false;
        }
    if (!m_options.csvFile.empty() && !m_csv.open(m_options.csvFile, tipColumns, referenceColumns)) {
        m_err << "kestrion track: " << m_csv.error() << "\n";
        return false;
    }
    if (!m_options.sequenceFile.empty() && !m_sequence.open(m_options.sequenceFile)) {
        m_err << "kestrion track: " << m_sequence.error() << "\n";
        return false;
    }
    if (!m_options.imagesFolder.empty()) {
        m_images.emplace(m_options.imagesFolder, m_options.imageIntervalS);
        if (!m_imagesPath.create()) {
            m_err << "kestrion track: " << m_imagesPath.error() << "\n";
            return false;
        }
    }
    return true;
}

void TrackOutputs::write(std::uint64_t frameIndex, const TrackingStreamData& frame,
                         const CompoundStreamData* compound) {
    if (m_csv.isOpen() && !m_csv.failed())
        m_csv.write(frameIndex, frame, frame.component<DeviceFrameInfo>());
    if (m_sequence.isOpen() && !m_sequence.failed())
        m_sequence.write(frameIndex, frame);
    if (m_images && compound && !m_images->failed() && !m_images->offer(*compound, frameIndex)) {
        m_err << "kestrion track: " << m_images->error() << "; no more images are saved\n";
        m_failed = true;
    }
    reportWriteFailures();
}

void TrackOutputs::flush() {
    if (m_csv.isOpen() && !m_csv.failed())
        m_csv.flush();
    if (m_sequence.isOpen() && !m_sequence.failed())
        m_sequence.flush();
    reportWriteFailures();
}

void TrackOutputs::reportWriteFailures() {
    // Each file's first failure, once: the file says which rows it holds.
    if (m_csv.failed() && !m_csvReported) {
        m_csvReported = true;
        m_err << "kestrion track: " << m_csv.error() << "; recording stopped, " << m_csv.partialFile()
              << " holds the rows written so far\n";
        m_failed = true;
    }
    if (m_sequence.failed() && !m_sequenceReported) {
        m_sequenceReported = true;
        m_err << "kestrion track: " << m_sequence.error() << "; no more frames are written to it\n";
        m_failed = true;
    }
}

void TrackOutputs::finish(const std::optional<RecordingStatus>& recording) {
    if (m_csv.isOpen() && !m_csv.failed() && !m_csv.close()) {
        m_err << "kestrion track: " << m_csv.error() << "; " << m_csv.partialFile()
              << " holds the rows written so far\n";
        m_failed = true;
    }
    if (!m_options.csvFile.empty() && !m_csv.failed())
        m_out << "Recorded " << m_csv.rowsWritten() << " rows to " << m_options.csvFile << "\n";
    if (m_sequence.isOpen() && !m_sequence.failed() && !m_sequence.close())
        m_err << "kestrion track: " << m_sequence.error() << "; " << m_sequence.partialFile()
              << " holds the frames written so far\n";
    else if (!m_options.sequenceFile.empty() && !m_sequence.failed())
        m_out << "Wrote " << m_sequence.framesWritten() << " frames to " << m_options.sequenceFile << "\n";
    m_failed = m_sequence.failed() || m_failed;
    if (!m_options.recordFile.empty() && !reportRecording(recording))
        m_failed = true;
    if (m_images)
        m_out << "Saved " << m_images->pairsSaved() << " image pair(s) to " << m_options.imagesFolder << "\n";
}

bool TrackOutputs::reportRecording(const std::optional<RecordingStatus>& recording) {
    const std::string& file = m_options.recordFile;
    if (recording && recording->state == RecordingStatus::State::CutShort) {
        // Never "Recorded ..." for a partial file: what it holds and why it ended there.
        m_err << "kestrion track: the recording " << file << " was cut short after " << recording->frames
              << " frames" << (recording->reason.empty() ? "" : ": " + recording->reason) << "; "
              << (recording->writtenFile.empty() ? "nothing was recorded"
                                                 : recording->writtenFile + " holds them")
              << "\n";
        return false;
    }
    if (recording && recording->state == RecordingStatus::State::Complete) {
        m_out << "Recorded the camera's frames to " << file << "\n";
        return true;
    }
    // No final word from the stream (it records no status, or its camera was lost at the end):
    // the file tells. The recorder's own lines, on the console, say why it was not completed.
    const QFileInfo info(QString::fromStdString(file));
    if (info.isFile() && !QFileInfo::exists(QString::fromStdString(file + ".part"))) {
        m_out << "Recorded the camera's frames to " << file << "\n";
        return true;
    }
    m_err << "kestrion track: the recording " << file << " was not completed\n";
    return false;
}

} // namespace Kestrion::Cli
