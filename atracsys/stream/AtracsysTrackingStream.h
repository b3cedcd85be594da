#pragma once

#include "atracsys/stream/AtracsysGeometry.h"
#include "atracsys/stream/AtracsysInstrumentId.h"
#include "atracsys/stream/AtracsysInstruments.h"
#include "atracsys/stream/AtracsysStreamSettings.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"

#include "host/core/Parameter.h"
#include "host/stream/connection/CameraSelection.h"

#include <ftkInterface.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion::SpryTrack {

class AtracsysAcquisition;
class AtracsysDeviceContext;
class AtracsysGeometryManager;
class AtracsysRecorder;

/// The tracking stream of an Atracsys camera driven through the SDK's ftk* interface: it opens the
/// camera, pushes the marker geometries of its instruments to it, and turns every frame into
/// instrument poses with a quality, optional raw 3D fiducials and optional camera images.
///
/// Only one stream may exist at a time (the camera is a process-wide resource).
///
/// The stream is the lifecycle (open, start, stop, close) and the owner of its parts, each in a
/// class of its own: the settings and their keys (AtracsysStreamSettings), the geometries
/// (AtracsysGeometryManager), the acquisition loop (AtracsysAcquisition) and the connection to
/// the camera (AtracsysDeviceContext).
///
/// Threads. Open, start, stop and close run on the host's control thread, doWork on the worker
/// thread, the settings and geometry operations on any thread (usually the user interface's).
/// Every SDK call is made with the device mutex held; the fetch yields it to waiting callers
/// (AtracsysDeviceContext). The registry has its own mutex and, where both are needed, the device
/// mutex is taken first. Settings are atomics read once per frame.
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
    bool startAfterInit() const override { return m_settings.startAfterInit(); }
    void setStartAfterInit(bool start) override { m_settings.setStartAfterInit(start); }
    bool queryImages() const override { return m_settings.queryImages(); }
    void setQueryImages(bool query) override { m_settings.setQueryImages(query); }
    void setFiducialQueryMode(FiducialQueryMode mode) override { m_settings.setFiducialQueryMode(mode); }
    FiducialQueryMode fiducialQueryMode() override { return m_settings.fiducialQueryMode(); }
    void setMaxFiducialMarkerDistance(double millimetres) override {
        m_settings.setMaxFiducialMarkerDistance(millimetres);
    }
    double maxFiducialMarkerDistance() const override { return m_settings.maxFiducialMarkerDistance(); }
    bool isInitialized() const override;
    /// Milliseconds from the start of one acquisition round to the next (default 10); 0: the next
    /// round follows at once and its fetch waits for the camera's next frame. Failed fetches keep
    /// their own waits. Negative values are taken as 0.
    int framePacingMs() const { return m_settings.framePacingMs(); }
    void setFramePacingMs(int milliseconds) { m_settings.setFramePacingMs(milliseconds); }
    /// The user's choice to have the camera reopened when it stops delivering frames (key
    /// "reconnect", written only when true; default false). The stream does not reconnect
    /// itself: whoever owns a StreamReconnector for it (the panel, `kestrion track`) honours it.
    bool reconnect() const { return m_settings.reconnect(); }
    void setReconnect(bool reconnect) { m_settings.setReconnect(reconnect); }
    /// The recording of the session ("recordFile"): it goes on across a camera reopened.
    std::optional<RecordingStatus> recordingStatus() const override;
    /// Records the session to `file`, with the camera images when `images` and the stream
    /// fetches them: at once while the stream runs, else when it starts. An existing file is
    /// refused unless `replace`. False (with the reason in recordingStatus() and the log) when
    /// the recording could not begin. A recording running is finished first, and its writer
    /// waited for: call it from a thread that may wait on the disk (neither the worker nor the
    /// user interface's).
    bool recordTo(const std::string& file, bool images, bool replace = false);
    /// Ends the session's recording after the frames fetched so far; the recorder's thread
    /// completes the file (recordingStatus() says when). Any thread; does not wait.
    void stopRecording();
    /// The camera's readable options (AtracsysDeviceReadings), read under the device mutex.
    std::vector<DeviceReading> readDevice() const override;
    bool addGeometry(const std::string& name, const std::string& path) override;
    std::vector<Eigen::Vector3d> geometryCoordinates(const std::string& instrumentId) override;
    bool removeGeometry(const std::string& instrumentId) override;
    bool reloadGeometry(const std::string& instrumentId, const std::string& name,
                        const std::string& path) override;

    std::vector<TrackingInstrument> instruments() const override;
    /// The geometries the camera refused since the last open, with their files and why.
    std::vector<InstrumentRefusal> refusedInstruments() const override;

    // Camera choice: the serial number takes effect at the next open.
    std::vector<ConnectedCamera> connectedCameras(std::string* error) const override;
    std::uint64_t selectedCameraSerial() const override { return m_settings.cameraSerial(); }
    void selectCameraSerial(std::uint64_t serialNumber) override { m_settings.setCameraSerial(serialNumber); }
    ConnectedCamera cameraInUse() const override;
    /// The instruments with their geometries.
    AtracsysInstruments& registry() { return *m_instruments; }

    /// Registration errors (mm) above which a tracked instrument's status is "high error"; the key
    /// "registrationErrorThreshold", written only when it differs from the default 0.5.
    double registrationErrorThreshold() const { return m_settings.registrationErrorThreshold(); }
    void setRegistrationErrorThreshold(double millimetres) {
        m_settings.setRegistrationErrorThreshold(millimetres);
    }

    /// Reads the settings (AtracsysStreamSettings has the keys) and loads the geometries of
    /// "TrackingTargets"; null is ignored.
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
    bool beginRecording();
    /// Goes on with the session's recording after the camera was reopened.
    void resumeRecording();

    std::unique_ptr<AtracsysInstruments> m_instruments;
    Parameter<float> m_distanceMatchingTolerance{"Distance matching tolerance", 1.0f, this};
    AtracsysStreamSettings m_settings;
    std::unique_ptr<AtracsysDeviceContext> m_device;
    /// Records the fetched frames when "recordFile" is set (the acquisition hands each frame over,
    /// the recorder's own thread writes).
    std::unique_ptr<AtracsysRecorder> m_recorder;
    /// Whether the last close ended the session (the recording finishes) rather than losing the
    /// camera or reopening it (the recording waits). Guarded by the device mutex.
    bool m_closedForGood = true;
    std::unique_ptr<AtracsysGeometryManager> m_geometries;
    std::unique_ptr<AtracsysAcquisition> m_acquisition;

    static std::atomic<AtracsysTrackingStream*> m_instance;
};

} // namespace Kestrion::SpryTrack
