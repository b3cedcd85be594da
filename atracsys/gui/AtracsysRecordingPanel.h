#pragma once

#include "host/stream/state/RecordingStatus.h"

#include <QFutureWatcher>
#include <QGroupBox>
#include <QString>
#include <QTimer>

#include <functional>
#include <optional>

class QCheckBox;
class QLabel;
class QPushButton;

namespace Kestrion {

namespace SpryTrack {
class AtracsysTrackingStream;
}

/// The "Recording" box of the stream's panel: "Record..." asks for a file (starting in the
/// workspace's folder) and records the session to it, at once while the stream runs, else from
/// its start; "Stop recording" ends it. "with images" records the camera images too (while the
/// stream fetches them). The indicator reads the stream's recording status twice a second: the
/// time since the recording began, the frames written, the file's size and the frames the
/// recorder dropped; then how it ended.
///
/// An existing file is never replaced: choosing one is refused with a line in the indicator.
///
/// Threads. GUI thread, but for the start of a recording: it creates the file and may wait for
/// the writer of the recording before to finish, so it runs on Qt's pool (m_starting) and the
/// panel waits for it before it goes. Stopping does not wait and runs on the GUI thread.
class AtracsysRecordingPanel : public QGroupBox {
    Q_OBJECT
public:
    /// The stream must outlive the panel.
    AtracsysRecordingPanel(SpryTrack::AtracsysTrackingStream& stream, QWidget* parent = nullptr);
    /// Waits for a recording being started.
    ~AtracsysRecordingPanel() override;

    /// Where the file dialog starts (the workspace's folder); asked at each "Record...".
    void setStartFolder(std::function<QString()> folder) { m_startFolder = std::move(folder); }

    QPushButton* recordButton() const { return m_recordButton; }
    QCheckBox* imagesCheck() const { return m_imagesCheck; }
    QLabel* indicator() const { return m_indicator; }
    /// Whether a recording is being started on the pool.
    bool starting() const { return m_starting.isRunning(); }

    /// The indicator's text for a status at `nowUS` (µs since the epoch, UTC).
    static QString describe(const std::optional<RecordingStatus>& status, std::uint64_t nowUS);
    /// "12.4 MB", "850 kB", "512 B".
    static QString size(std::uint64_t bytes);

public slots:
    /// The button: asks for a file and records to it, or stops the recording.
    void onRecordClicked();
    /// Reads the status and shows it.
    void refresh();

private:
    void start(const QString& file);
    bool recordingRuns() const;

    SpryTrack::AtracsysTrackingStream& m_stream;
    QPushButton* m_recordButton;
    QCheckBox* m_imagesCheck;
    QLabel* m_indicator;
    QTimer m_timer;
    QFutureWatcher<bool> m_starting;
    std::function<QString()> m_startFolder;
    /// The file asked for while the stream does not run yet: recorded from its start.
    QString m_pendingFile;
    /// Why the last "Record..." did not begin (shown until the next one).
    QString m_refusal;
};

} // namespace Kestrion
