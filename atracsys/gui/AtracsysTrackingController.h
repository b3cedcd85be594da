#pragma once

#include "atracsys/gui/AtracsysRenderer.h"
#include "atracsys/stream/AtracsysStreamAlgorithm.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/lib/widgets/StreamControllerBase.h"
#include "host/stream/connection/StreamReconnector.h"

#include <QString>

#include <memory>

class QCheckBox;
class QComboBox;
class QGridLayout;
class QGroupBox;
class QLabel;
class QPushButton;
class QSpinBox;
class QVBoxLayout;

namespace Kestrion {

class AtracsysMarkersWidget;
class AtracsysRecordingPanel;
class PropertiesWidget;

/// The panel of the Atracsys tracking stream: opens and closes the connection to the camera,
/// starts and stops tracking, chooses the fiducial query mode, switches the camera images on and
/// off and edits the stream's properties. It hosts the markers widget and, when images are
/// wanted, owns the camera view.
///
/// GUI thread only. Stream state changes, signalled from the stream's control thread, reach the
/// panel as queued updateGUI() calls. Open and close are not waited for; start and stop block
/// until the stream has finished the transition.
class AtracsysTrackingController : public StreamControllerBase {
    Q_OBJECT
public:
    /// CreateStreamIoAlgorithm<SpryTrack::AtracsysTrackingStream, false, false>
    using CreateAlgorithm = SpryTrack::AtracsysStreamAlgorithm;

    explicit AtracsysTrackingController(CreateAlgorithm* algorithm);
    ~AtracsysTrackingController() override;

    /// Binds the panel to the algorithm's stream, creates the markers widget and the camera view
    /// and starts the stream when it asks to be started once open.
    void init() override;

    /// The stream bound by init(), or null.
    SpryTrack::AtracsysTrackingStream* stream() const { return m_stream; }
    AtracsysMarkersWidget* markersWidget() const { return m_markersWidget; }
    /// Records the session (made by init(), with the stream).
    AtracsysRecordingPanel* recordingPanel() const { return m_recordingPanel; }
    AtracsysRenderer* renderer() const { return m_renderer.get(); }
    /// Brings the stream back after the camera was unplugged, while "Reconnect" is checked.
    StreamReconnector* reconnector() const { return m_reconnector.get(); }

public slots:
    void setupGUI();
    void updateGUI();
    /// Both buttons' pressed() signal.
    void onValueChanged();
    void onFiducialQueryModeChanged(const QString& text);
    void onQueryImagesStateChanged(int checkState);
    void onFramePacingChanged(int milliseconds);
    void onReconnectStateChanged(int checkState);

private:
    /// Replaces the camera view by a new one on the stream and the host's display.
    void createRenderer();
    /// The frame pacing and reconnection controls, below the general ones.
    void setupAcquisitionControls();
    void updateAcquisitionControls(Stream::State state);

    PropertiesWidget* m_propertiesWidget;
    QVBoxLayout* m_layout;
    SpryTrack::AtracsysTrackingStream* m_stream;
    QGroupBox* m_generalBox;
    QGridLayout* m_generalLayout;
    QPushButton* m_connectionButton;
    QPushButton* m_startButton;
    QComboBox* m_fiducialModeCombo;
    QCheckBox* m_showImagesCheck;
    QSpinBox* m_framePacingSpin;
    QCheckBox* m_reconnectCheck;
    QLabel* m_reconnectLabel;
    AtracsysMarkersWidget* m_markersWidget;   // a Qt child of the panel
    AtracsysRecordingPanel* m_recordingPanel; // a Qt child of the panel
    std::unique_ptr<AtracsysRenderer> m_renderer;
    std::unique_ptr<StreamReconnector> m_reconnector; // from init(), with the stream
};

} // namespace Kestrion
