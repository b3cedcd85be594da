#pragma once

#include "host/calibration/PivotCalibration.h"

#include "host/core/SignalConnection.h"
#include "host/core/SignalReceiver.h"

#include <QTimer>
#include <QWidget>

#include <memory>
#include <optional>
#include <string>

class QLabel;
class QProgressBar;
class QPushButton;

namespace Kestrion {

class PivotRecording;
class AtracsysTrackingStreamBase;

/// The markers widget's pivot calibration: "Pivot calibration" records the first active
/// instrument while the user pivots it about its tip (progress bar, "Cancel"), then shows the tip,
/// the pivot point, the RMS residual, the frames used and rejected and the angular spread, or why
/// the recording gave no tip. "Save tip..." then writes the tip as the [pivot] section of a
/// geometry file the user chooses (the instrument's own file is proposed and, once written, loaded
/// again so that its tip is tracked).
///
/// Threads: the panel lives on the GUI thread; the recording takes the frames on the stream's
/// worker thread (one pose copied per frame) and the panel polls its progress with a timer.
class AtracsysPivotCalibrationPanel : public QWidget, public SignalReceiver {
    Q_OBJECT
public:
    AtracsysPivotCalibrationPanel(AtracsysTrackingStreamBase* stream, QWidget* parent = nullptr);
    /// Ends the recording's connection to the stream before the members go.
    ~AtracsysPivotCalibrationPanel() override;

    /// Frames recorded before solving (500 unless set).
    void setFrames(std::size_t frames) { m_frames = frames; }
    bool isRecording() const;
    /// The geometry file an instrument of the stream was loaded from (its "TrackingTargets"
    /// entry); empty when there is none.
    static std::string geometryPath(const AtracsysTrackingStreamBase& stream,
                                    const std::string& instrumentId);

    /// The last solve's result; empty before one or after a cancel.
    const std::optional<PivotCalibration::Result>& result() const { return m_result; }

public slots:
    void onStart();
    void onCancel();
    void onSave();

private:
    void poll();
    void finish();
    void showIdle();

    AtracsysTrackingStreamBase* m_stream; // not owned
    QPushButton* m_start;
    QProgressBar* m_progress;
    QPushButton* m_cancel;
    QLabel* m_resultLabel;
    QPushButton* m_save;
    QTimer m_timer;
    std::size_t m_frames = 500;
    std::string m_instrumentId;
    std::shared_ptr<PivotRecording> m_recording; // shared with the worker's slot
    SignalConnection m_connection;
    std::optional<PivotCalibration::Result> m_result;
};

} // namespace Kestrion
