#include "atracsys/stream/AtracsysAcquisition.h"

#include "atracsys/recording/AtracsysRecorder.h"
#include "atracsys/stream/AtracsysDeviceContext.h"
#include "atracsys/stream/AtracsysStreamSettings.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/core/Log.h"
#include "host/core/Time.h"
#include "host/stream/CameraDetectionsData.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"

namespace Kestrion::SpryTrack {

namespace {

constexpr const char* Category = "AtracsysTrackingStream";
constexpr const char* LeftCameraName = "Camera (left)";
constexpr const char* RightCameraName = "Camera (right)";
/// The device option of a replayed recording: 1 once its last frame was delivered.
constexpr const char* ReplayEndedOption = "Replay ended";
constexpr const char* RecordingEnded = "the recording has ended";
constexpr std::uint32_t FetchTimeoutMs = 100;
/// Paced by the camera, the wait for the next frame is made of attempts this long, so that the
/// device mutex is free for a waiting caller at least this often (see fetchFrame), while the
/// camera's frame period is not known yet.
constexpr std::uint32_t CameraPacedAttemptMs = 1;
/// Paced by the camera, the worker wakes this long before the next frame's earliest arrival.
constexpr std::uint64_t CameraPacedLeadUS = 500;

std::uint64_t utcMicroseconds() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

/// A failed fetch in words, for the stream's health.
std::string fetchFailure(ftkError result) {
    const std::string code = " (ftkGetLastFrame error " + std::to_string(static_cast<int>(result)) + ")";
    switch (result) {
    case ftkError::FTK_ERR_DISCONNECTION:
        return "the camera is disconnected" + code;
    case ftkError::FTK_ERR_INV_SN:
        return "the camera is no longer connected" + code;
    case ftkError::FTK_ERR_SEG_OVERFLOW:
        return "the camera's images overflowed" + code;
    default:
        return "the camera did not deliver a frame" + code;
    }
}

} // namespace

AtracsysAcquisition::AtracsysAcquisition(AtracsysTrackingStream& stream, AtracsysDeviceContext& device,
                                         const AtracsysStreamSettings& settings, AtracsysRecorder& recorder)
    : m_stream(stream)
    , m_device(device)
    , m_settings(settings)
    , m_recorder(recorder)
    , m_converter(AtracsysDeviceContext::fiducialsCapacity, AtracsysDeviceContext::markersCapacity) {}

AtracsysAcquisition::~AtracsysAcquisition() = default;

void AtracsysAcquisition::prepareForOpen(double toleranceMM) {
    m_device.errorCount = 0;
    m_device.errorCodes.clear();
    m_deviceTolerance = toleranceMM;
    m_captureClock.reset(); // the device's clock starts again with the device
    m_schedule.reset();
    m_deviceName = m_device.device().name;
    m_serialNumber = m_device.serialNumber();
    const auto option = m_device.options().find(ReplayEndedOption);
    m_replayEndedOption = option == m_device.options().end() ? std::nullopt : std::optional(option->second);
}

AtracsysAcquisition::Clock::time_point AtracsysAcquisition::round() {
    Clock::time_point wakeUp = Clock::now() + std::chrono::milliseconds(m_settings.framePacingMs());
    try {
        acquire(wakeUp);
    } catch (const std::exception& e) {
        m_stream.close();
        KESTRION_LOG_ERROR(
            Category, "An unexpected exception occured while running the background thread: " << e.what());
    } catch (...) {
        m_stream.close();
        KESTRION_LOG_ERROR(
            Category,
            "An unexpected exception occured while running the background thread: unknown exception");
    }
    // A frame record given up by an error report during this round was still read until here.
    if (m_frameRetired) {
        AtracsysDeviceContext::Lock lock(m_device);
        m_device.releaseRetiredFrame();
        m_frameRetired = false;
    }
    return wakeUp;
}

ftkError AtracsysAcquisition::fetchFrame(ftkFrameQuery*& frame) {
    if (m_settings.framePacingMs() != 0)
        return fetchAttempt(frame, FetchTimeoutMs);
    // Paced by the camera, one fetch would hold the device mutex until the next frame came (up to
    // a period plus the camera's delivery delay), and a caller from another thread would wait for
    // it. The worker therefore sleeps without the mutex until shortly before the next frame can
    // come (acquire), and the wait is made of attempts of up to a period less that lead (1 ms
    // until the period is known) with the mutex handed over between them. The frame ends an
    // attempt at once. An attempt that ends empty after waiting is no failure: the next follows
    // until the usual timeout has passed. One that comes back empty without waiting (a replay past
    // its end; below half its time, since a library's timer may end a wait a little early) is
    // returned as it is. Durations on the steady clock: a change of the system's time must not
    // stretch the wait.
    using Steady = std::chrono::steady_clock;
    const std::uint64_t period = m_schedule.periodUS();
    const std::uint32_t attemptMs = period > CameraPacedLeadUS + 1000
                                        ? static_cast<std::uint32_t>((period - CameraPacedLeadUS) / 1000)
                                        : CameraPacedAttemptMs;
    const auto fetchStart = Steady::now();
    const auto deadline = fetchStart + std::chrono::milliseconds(FetchTimeoutMs);
    const auto waited = std::chrono::microseconds(attemptMs * 1000 / 2);
    for (;;) {
        const auto attemptStart = Steady::now();
        const ftkError result = fetchAttempt(frame, attemptMs);
        const auto now = Steady::now();
        m_frameWasWaiting = now - fetchStart < std::chrono::microseconds(CameraPacedLeadUS / 2);
        if (result != ftkError::FTK_WAR_NO_FRAME || !frame || now >= deadline || now - attemptStart < waited)
            return result;
    }
}

ftkError AtracsysAcquisition::fetchAttempt(ftkFrameQuery*& frame, std::uint32_t timeoutMs) {
    // The SDK call and the frame record. The fetch waits for the camera's next frame with the
    // mutex held; the FetchLock lets a call from another thread go first (AtracsysDeviceContext).
    AtracsysDeviceContext::FetchLock lock(m_device);
    if (!m_device.frame() && m_device.library()) {
        // An error report released the record: a new one with the sizes of the open.
        switch (m_device.createFrame()) {
        case AtracsysDeviceContext::FrameResult::Created:
            break;
        case AtracsysDeviceContext::FrameResult::CreateFailed:
            m_device.reportError("Cannot create frame instance.");
            m_frameRetired = true;
            break;
        case AtracsysDeviceContext::FrameResult::OptionsFailed:
            m_device.reportError("Cannot set frame options.");
            m_frameRetired = true;
            break;
        }
    }
    frame = m_device.frame();
    if (!frame)
        return ftkError::FTK_ERR_INIT;
    const ftkError result = ftkGetLastFrame(m_device.library(), m_device.serialNumber(), frame, timeoutMs);
    m_arrivalUS = utcMicroseconds();
    return result;
}

void AtracsysAcquisition::acquire(Clock::time_point& wakeUp) {
    ftkFrameQuery* frame = nullptr;
    const ftkError result = fetchFrame(frame);
    if (!frame) {
        // No frame record can be had: the stream cannot go on.
        m_stream.health().noteFailure("no frame record can be created for the camera");
        m_stream.close();
        return;
    }
    // Paced by the camera, a fetch that failed without waiting for a frame must not be repeated at
    // once: failures keep the default wait.
    if (result != ftkError::FTK_OK && result != ftkError::FTK_WAR_NO_FRAME && m_settings.framePacingMs() == 0)
        wakeUp = Clock::now() + std::chrono::milliseconds(AtracsysStreamSettings::DefaultFramePacingMs);
    if (result == ftkError::FTK_ERR_INTERNAL) {
        reportError("Internal system error, report to Atracsys.");
        return;
    }
    if (result == ftkError::FTK_WAR_NO_FRAME) {
        checkReplayEnded();
        return;
    }
    if (result != ftkError::FTK_OK) {
        m_stream.health().noteFailure(fetchFailure(result));
        if (countFailedFetch(result))
            wakeUp = Clock::now() + std::chrono::milliseconds(500);
        checkReplayEnded();
        return;
    }
    m_device.errorCount = 0;
    m_device.errorCodes.clear();
    // The recorder hook: the fetched frame as delivered, handed to the recorder's own thread.
    m_recorder.record(*frame);
    processFrame(*frame, wakeUp);
    if (m_settings.framePacingMs() == 0)
        sleepUntilNextFrame(wakeUp);
}

void AtracsysAcquisition::sleepUntilNextFrame(Clock::time_point& wakeUp) const {
    // Paced by the camera, nothing is to be fetched before the next frame is exposed: the worker
    // sleeps until just before (the mutex free meanwhile), never longer than a period; not after a
    // frame that was already waiting (AtracsysFrameSchedule).
    const std::optional<std::uint64_t> next = m_schedule.nextFrameUS();
    if (!next || *next < CameraPacedLeadUS)
        return;
    const Clock::time_point at{
        std::chrono::duration_cast<Clock::duration>(std::chrono::microseconds(*next - CameraPacedLeadUS))};
    const Clock::time_point now = Clock::now();
    if (at > wakeUp && at < now + std::chrono::microseconds(m_schedule.periodUS()))
        wakeUp = at;
}

bool AtracsysAcquisition::countFailedFetch(ftkError result) {
    ++m_device.errorCount;
    m_device.errorCodes.insert(result);
    if (m_device.errorCount < 51)
        return false;
    KESTRION_LOG_ERROR(
        Category, "AtracsysTrackingStream: ftkGetLastFrame returned not FTK_OK but [" << [&] {
            std::string codes;
            for (ftkError code : m_device.errorCodes)
                codes += std::to_string(static_cast<int>(code)) + " ";
            return codes;
        }() << "] for " << m_device.errorCount << " times in a row!");
    // Until frames come again, every instrument is shown untracked.
    m_stream.emitSignals(m_stream.registry().prepareUpdate(Time::utcMilliseconds()));
    return true;
}

void AtracsysAcquisition::checkReplayEnded() {
    // Only a replay device has the option; one read per fetch without a frame.
    if (!m_replayEndedOption || m_stream.health().snapshot().state == StreamHealth::State::Ended)
        return;
    int32 ended = 0;
    {
        AtracsysDeviceContext::Lock lock(m_device); // an SDK call
        if (ftkGetInt32(m_device.library(), m_device.serialNumber(), *m_replayEndedOption, &ended,
                        ftkOptionGetter::FTK_VALUE) != ftkError::FTK_OK)
            return;
    }
    if (ended == 1)
        m_stream.health().noteEnded(RecordingEnded);
}

void AtracsysAcquisition::reportError(const std::string& message) {
    {
        AtracsysDeviceContext::Lock lock(m_device); // the frame record and an SDK call
        m_device.reportError(message);
    }
    m_frameRetired = true;
    m_stream.health().noteFailure(message);
}

void AtracsysAcquisition::processFrame(const ftkFrameQuery& fetched, Clock::time_point& wakeUp) {
    const ftkFrameQuery frame = AtracsysFrameConverter::bounded(fetched);
    const auto markerStatus = static_cast<std::int8_t>(frame.markersStat);
    bool overflow = false;
    switch (markerStatus) {
    case static_cast<std::int8_t>(ftkQueryStatus::QS_ERR_OVERFLOW):
        overflow = true;
        reportError("Marker overflow. Please increase cstMarkersCount.");
        m_stream.close();
        reportError("Invalid frame status.");
        m_stream.close();
        break; // the markers that fitted are still read
    case static_cast<std::int8_t>(ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE):
        reportError("Invalid reserved marker size.");
        m_stream.close();
        return;
    case static_cast<std::int8_t>(ftkQueryStatus::QS_WAR_SKIPPED):
        KESTRION_LOG_DEBUG(Category, "QS WAR SKIPPED");
        break;
    case static_cast<std::int8_t>(ftkQueryStatus::QS_OK):
        break;
    default:
        reportError("Invalid frame status.");
        m_stream.close();
        break;
    }

    const AtracsysTrackingStreamBase::FiducialQueryMode mode = m_settings.fiducialQueryMode();
    m_converter.selectFiducials(frame, mode, m_settings.maxFiducialMarkerDistance());

    std::vector<std::shared_ptr<ImageStreamData>> images;
    if (m_settings.queryImages()) {
        if (AtracsysFrameConverter::hasImages(frame))
            emitCameraUpdate(frame, images);
        else
            KESTRION_LOG_WARN(Category, "AtracsysTrackingStream: Raw images not available.");
    }

    if (overflow) {
        KESTRION_LOG_ERROR(Category, "AtracsysTrackingStream: Marker overflow!");
        wakeUp = Clock::now() + std::chrono::milliseconds(100);
        return;
    }

    AtracsysInstruments& registry = m_stream.registry();
    const std::uint64_t timestamp = Time::utcMilliseconds();
    registry.prepareUpdate(timestamp);
    m_converter.writePoses(frame, registry);

    std::shared_ptr<TrackingStreamData> tracking = m_stream.createTrackingStreamData();
    if (mode != AtracsysTrackingStreamBase::NoFiducials)
        tracking->addComponent(m_converter.fiducialsData(frame, tracking->instruments()));
    tracking->addComponent(m_converter.tipData()); // none without a tracked tip
    if (m_stream.instrumentStatusRequested())
        tracking->addComponent(
            m_statusReporter.report(frame, registry, tracking->instruments(),
                                    {m_deviceTolerance.load(), m_settings.registrationErrorThreshold()}));
    addDeviceTime(frame, *tracking);
    const std::uint64_t deviceTimestamp =
        tracking->instruments().empty() ? timestamp : tracking->deviceTimestamp();
    std::vector<std::shared_ptr<const StreamData>> subData;
    if (images.size() == 2) {
        // Where the images show the selected fiducials, for consumers of the images.
        auto detections = std::make_shared<CameraDetectionsData>();
        detections->left = {m_currentUpdate->left.fiducials, m_currentUpdate->left.fiducialSizes};
        detections->right = {m_currentUpdate->right.fiducials, m_currentUpdate->right.fiducialSizes};
        tracking->addComponent(std::move(detections));
        for (auto& image : images) {
            image->setArrivalTimestamp(timestamp);
            image->setDeviceTimestamp(deviceTimestamp);
            subData.push_back(std::move(image));
        }
    }
    m_stream.completeFrame(*tracking); // the host's additions: names, poses in the reference's frame
    m_stream.emitMainAndSubSignals(
        std::make_shared<CompoundStreamData>(std::move(tracking), std::move(subData)), true);
}

void AtracsysAcquisition::addDeviceTime(const ftkFrameQuery& frame, TrackingStreamData& tracking) {
    if (!frame.imageHeader ||
        static_cast<std::int8_t>(frame.imageHeaderStat) != static_cast<std::int8_t>(ftkQueryStatus::QS_OK))
        return;
    const std::uint64_t deviceUS = frame.imageHeader->timestampUS;
    tracking.addComponent(std::make_shared<DeviceFrameInfo>(m_deviceName, m_serialNumber,
                                                            frame.imageHeader->counter, deviceUS));
    const std::uint64_t captureUS = m_captureClock.captureTime(deviceUS, m_arrivalUS);
    tracking.addComponent(std::make_shared<CaptureTimeData>(captureUS, deviceUS));
    m_schedule.noteFrame(frame.imageHeader->counter, deviceUS, captureUS, m_frameWasWaiting);
}

void AtracsysAcquisition::emitCameraUpdate(const ftkFrameQuery& frame,
                                           std::vector<std::shared_ptr<ImageStreamData>>& images) {
    // The update is refilled in place: receivers only see it during the emission.
    if (!m_currentUpdate)
        m_currentUpdate = std::make_unique<AtracsysUpdate>();
    m_converter.fillUpdate(frame, *m_currentUpdate);
    auto addImage = [this, &images](const char* name, const std::shared_ptr<SharedImage>& image) {
        const std::shared_ptr<SubstreamBase> sub = m_stream.substream(std::string(name));
        if (auto* imageStream = sub ? dynamic_cast<const ImageStream*>(&sub->stream()) : nullptr)
            images.push_back(std::make_shared<ImageStreamData>(imageStream, image));
    };
    addImage(LeftCameraName, m_currentUpdate->left.image);
    addImage(RightCameraName, m_currentUpdate->right.image);
    m_stream.signalAtracsysUpdate.emitSignal(*m_currentUpdate);
}

} // namespace Kestrion::SpryTrack
