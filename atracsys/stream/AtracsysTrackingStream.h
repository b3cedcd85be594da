#pragma once

#include "atracsys/stream/AtracsysFrameConverter.h"
#include "atracsys/stream/AtracsysGeometry.h"
#include "atracsys/stream/AtracsysInstrumentId.h"
#include "atracsys/stream/AtracsysInstruments.h"
#include "atracsys/stream/AtracsysStatusReporter.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"

#include "host/core/Parameter.h"
#include "host/stream/connection/CameraSelection.h"

#include <ftkInterface.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion {
class ImageStreamData;
}

namespace Kestrion::SpryTrack {

class AtracsysDeviceContext;
class AtracsysRecorder;

/// The tracking stream of an Atracsys camera driven through the SDK's ftk* interface: it opens the
/// camera, pushes the marker geometries of its instruments to it, and turns every frame into
/// instrument poses with a quality, optional raw 3D fiducials and optional camera images.
///
/// Only one stream may exist at a time (the camera is a process-wide resource).
///
/// Threads. Open, start, stop and close run on the host's control thread, doWork on the worker
/// thread, the settings and geometry operations on any thread (usually the user interface's).
/// Every SDK call is made with the device mutex held; the registry has its own mutex and, where
/// both are needed, the device mutex is taken first. Settings are atomics read once per frame.
class AtracsysTrackingStream : public AtracsysTrackingStreamBase, public CameraSelection {
public:
    /// Throws std::runtime_error when another AtracsysTrackingStream exists.
    explicit AtracsysTrackingStream(const std::string& name);
    /// Closes the stream and disconnects every receiver of its signals.
    ~AtracsysTrackingStream() override;

    /// True while an AtracsysTrackingStream exists.
    static bool exists();

    int imageIntegrationTime() const override;
    void setImageIntegrationTime(int microseconds) override;
    bool startAfterInit() const override { return m_startAfterInit.load(); }
    void setStartAfterInit(bool start) override { m_startAfterInit = start; }
    bool queryImages() const override { return m_queryImages.load(); }
    void setQueryImages(bool query) override { m_queryImages = query; }
    void setFiducialQueryMode(FiducialQueryMode mode) override { m_fiducialQueryMode = mode; }
    FiducialQueryMode fiducialQueryMode() override { return m_fiducialQueryMode.load(); }
    void setMaxFiducialMarkerDistance(double millimetres) override {
        m_maxFiducialMarkerDistance = millimetres;
    }
    double maxFiducialMarkerDistance() const override { return m_maxFiducialMarkerDistance.load(); }
    bool isInitialized() const override;
    /// Milliseconds from the start of one acquisition round to the next (default 10); 0: the next
    /// round follows at once and its fetch waits for the camera's next frame. Failed fetches keep
    /// their own waits. Negative values are taken as 0.
    int framePacingMs() const { return m_framePacingMs.load(); }
    void setFramePacingMs(int milliseconds) { m_framePacingMs = milliseconds < 0 ? 0 : milliseconds; }
    /// The user's choice to have the camera reopened when it stops delivering frames (key
    /// "reconnect", written only when true; default false). The stream does not reconnect
    /// itself: whoever owns a StreamReconnector for it (the panel, `kestrion track`) honours it.
    bool reconnect() const { return m_reconnect.load(); }
    void setReconnect(bool reconnect) { m_reconnect = reconnect; }
    /// The recording of the session ("recordFile"): it goes on across a camera reopened.
    std::optional<RecordingStatus> recordingStatus() const override;
    bool addGeometry(const std::string& name, const std::string& path) override;
    std::vector<Eigen::Vector3d> geometryCoordinates(const std::string& instrumentId) override;
    bool removeGeometry(const std::string& instrumentId) override;

    std::vector<TrackingInstrument> instruments() const override;

    // Camera choice: the serial number takes effect at the next open.
    std::vector<ConnectedCamera> connectedCameras(std::string* error) const override;
    std::uint64_t selectedCameraSerial() const override { return m_cameraSerial.load(); }
    void selectCameraSerial(std::uint64_t serialNumber) override { m_cameraSerial = serialNumber; }
    ConnectedCamera cameraInUse() const override;
    /// The instruments with their geometries.
    AtracsysInstruments& registry() { return *m_instruments; }

    /// Registration errors (mm) above which a tracked instrument's status is "high error"; the key
    /// "registrationErrorThreshold", written only when it differs from the default 0.5.
    double registrationErrorThreshold() const { return m_registrationErrorThreshold.load(); }
    void setRegistrationErrorThreshold(double millimetres) { m_registrationErrorThreshold = millimetres; }

    /// Reads the settings and loads the geometries of "TrackingTargets"; null is ignored.
    void configure(const Properties* properties) override;
    /// Writes the settings and one "TrackingTargets" entry per instrument; null is ignored.
    void configuration(Properties* properties) const override;
    std::vector<std::string> optionalParameterNames() const override;

protected:
    bool openImpl() override;
    bool closeImpl() override;
    bool startImpl() override;
    bool stopImpl() override;
    std::optional<Clock::time_point> doWork() override;

    /// The connection to the camera (library handle, serial number, frame record, device mutex),
    /// for derived streams and diagnostics; lock its mutex for any use.
    AtracsysDeviceContext& deviceContext() { return *m_device; }

    // The two halves of doWork, for derived streams and for measuring the processing apart from
    // the wait for the camera: a successful fetch followed by processFrame is one doWork round.
    /// Fetches the newest frame into the frame record (recreating a record released by an error).
    ftkError fetchFrame(ftkFrameQuery*& frame);
    /// Processes a fetched frame: checks, selection, images, poses and the data emission.
    void processFrame(const ftkFrameQuery& frame, Clock::time_point& wakeUp);

private:
    void prepareImageSubstreams();
    bool openDevice();
    void setSpryTrackOptions();
    /// Starts the recording with the camera's description and the geometries on it.
    void startRecording();
    /// Goes on with the session's recording after the camera was reopened.
    void resumeRecording();
    /// Releases the frame record, logs "AtracsysTrackingStream: <message>" and the SDK's last
    /// error. reportError takes the device mutex; reportErrorLocked expects it held.
    void reportError(const std::string& message);
    void reportErrorLocked(const std::string& message);
    /// One round of doWork; `wakeUp` is the time of the next round.
    void acquire(Clock::time_point& wakeUp);
    /// Handles a failed fetch; true when the error line was logged (the run is long enough).
    bool countFailedFetch(ftkError result);
    /// The camera images of the frame as image data of the substreams, and the camera update.
    void emitCameraUpdate(const ftkFrameQuery& frame, std::vector<std::shared_ptr<ImageStreamData>>& images);

    std::unique_ptr<AtracsysInstruments> m_instruments;
    Parameter<float> m_distanceMatchingTolerance{"Distance matching tolerance", 1.0f, this};
    std::atomic<bool> m_startAfterInit{false};
    std::atomic<bool> m_queryImages{false};
    std::atomic<FiducialQueryMode> m_fiducialQueryMode{NoFiducials};
    std::atomic<double> m_maxFiducialMarkerDistance{100.0};
    /// Integration time applied at start and written to the configuration while the device is
    /// closed; -1: the device keeps its own.
    std::atomic<int> m_imageIntegrationTime{-1};
    std::atomic<int> m_framePacingMs{10};
    std::atomic<bool> m_reconnect{false};
    std::atomic<std::uint64_t> m_cameraSerial{0};
    std::unique_ptr<AtracsysDeviceContext> m_device;
    /// Records the fetched frames when "recordFile" is set (worker thread hands over, its own
    /// thread writes).
    std::unique_ptr<AtracsysRecorder> m_recorder;
    /// The update of the last frame with images; refilled for every such frame (worker thread).
    std::unique_ptr<AtracsysUpdate> m_currentUpdate;

    /// Per-frame work and buffers of the worker thread.
    AtracsysFrameConverter m_converter;
    AtracsysStatusReporter m_statusReporter;
    std::atomic<double> m_registrationErrorThreshold{0.5};
    /// The distance matching tolerance the camera was given at the last open (status reasons).
    std::atomic<double> m_deviceTolerance{1.0};

    static std::atomic<AtracsysTrackingStream*> m_instance;
};

} // namespace Kestrion::SpryTrack
