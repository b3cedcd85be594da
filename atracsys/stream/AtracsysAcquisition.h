#pragma once

#include "atracsys/stream/AtracsysCaptureTimeEstimator.h"
#include "atracsys/stream/AtracsysFrameConverter.h"
#include "atracsys/stream/AtracsysFrameSchedule.h"
#include "atracsys/stream/AtracsysStatusReporter.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"

#include "host/stream/Stream.h"

#include <ftkInterface.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {
class ImageStreamData;
}

namespace Kestrion::SpryTrack {

class AtracsysDeviceContext;
class AtracsysRecorder;
class AtracsysStreamSettings;
class AtracsysTrackingStream;

/// The tracking stream's acquisition loop, one round per doWork on the stream's worker thread:
/// fetch the newest frame, check it, select raw fiducials, build the camera images, write the
/// instruments' poses, attach the frame's components (fiducials, tips, instrument status, device
/// frame, capture time, then the host's completeFrame) and emit the compound data. Failures are
/// logged as the stream always did and noted on the stream's health in words; a replayed
/// recording that has played its last frame is noted as ended.
///
/// Threads. Everything here runs on the worker thread except prepareForOpen (control thread,
/// device mutex held, worker not running). The fetch takes the device mutex through a FetchLock,
/// which yields to calls from other threads waiting for it (AtracsysDeviceContext); paced by the
/// camera the worker sleeps without it until shortly before the next frame can come, and the
/// fetch waits in attempts of up to a period, yielding between them.
class AtracsysAcquisition {
public:
    using Clock = Stream::Clock;

    AtracsysAcquisition(AtracsysTrackingStream& stream, AtracsysDeviceContext& device,
                        const AtracsysStreamSettings& settings, AtracsysRecorder& recorder);
    ~AtracsysAcquisition();

    /// (device mutex) A new connection: the error run, the capture clock and the "Replay ended"
    /// option are those of the device just opened; `toleranceMM` is the camera's distance
    /// matching tolerance (instrument status reasons).
    void prepareForOpen(double toleranceMM);

    /// One round; returns the time of the next one.
    Clock::time_point round();
    /// Fetches the newest frame into the frame record (recreating a record released by an error),
    /// waiting up to 100 ms for it; paced by the camera, in attempts (see the source).
    ftkError fetchFrame(ftkFrameQuery*& frame);
    /// Processes a fetched frame: checks, selection, images, poses and the data emission.
    void processFrame(const ftkFrameQuery& frame, Clock::time_point& wakeUp);

private:
    /// One SDK fetch waiting up to `timeoutMs`, device mutex held (through a FetchLock).
    ftkError fetchAttempt(ftkFrameQuery*& frame, std::uint32_t timeoutMs);
    void acquire(Clock::time_point& wakeUp);
    /// Handles a failed fetch; true when the error line was logged (the run is long enough).
    bool countFailedFetch(ftkError result);
    /// After a fetch without a frame: a replay device that played its last frame ends the data.
    void checkReplayEnded();
    /// Logs the error report (device mutex taken) and notes the failure on the stream's health.
    void reportError(const std::string& message);
    /// The camera images of the frame as image data of the substreams, and the camera update.
    void emitCameraUpdate(const ftkFrameQuery& frame, std::vector<std::shared_ptr<ImageStreamData>>& images);
    /// Paced by the camera, after a frame: the next round starts shortly before the next frame's
    /// earliest arrival, when it is known.
    void sleepUntilNextFrame(Clock::time_point& wakeUp) const;
    /// The capture-time and device-frame components of a frame with an image header.
    void addDeviceTime(const ftkFrameQuery& frame, TrackingStreamData& tracking);

    AtracsysTrackingStream& m_stream;
    AtracsysDeviceContext& m_device;
    const AtracsysStreamSettings& m_settings;
    AtracsysRecorder& m_recorder;

    AtracsysFrameConverter m_converter;
    AtracsysStatusReporter m_statusReporter;
    AtracsysCaptureTimeEstimator m_captureClock;
    AtracsysFrameSchedule m_schedule;
    /// The update of the last frame with images; refilled for every such frame.
    std::unique_ptr<AtracsysUpdate> m_currentUpdate;
    /// Paced by the camera: the last frame fetched was there already when the fetch began (it
    /// came back within half the lead, without waiting for it).
    bool m_frameWasWaiting = false;
    /// When the last frame fetched arrived (µs since the epoch, UTC).
    std::uint64_t m_arrivalUS = 0;
    /// The option "Replay ended" of the device (a replayed recording); none on a camera.
    std::optional<std::uint32_t> m_replayEndedOption;
    /// The device opened (copied at open, so that frames need not take the device mutex for it).
    std::string m_deviceName;
    std::uint64_t m_serialNumber = 0;
    /// An error report of this round gave up the frame record: it is released at the round's end.
    bool m_frameRetired = false;
    /// Set at open (control thread), read per frame: an atomic.
    std::atomic<double> m_deviceTolerance{1.0};
};

} // namespace Kestrion::SpryTrack
