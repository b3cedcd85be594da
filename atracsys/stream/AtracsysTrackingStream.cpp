#include "atracsys/stream/AtracsysTrackingStream.h"

#include "atracsys/device/AtracsysDeviceHelpers.h"
#include "atracsys/device/AtracsysDeviceList.h"
#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "atracsys/device/AtracsysOptionHelpers.h"
#include "atracsys/recording/AtracsysRecorder.h"
#include "atracsys/recording/AtracsysRecordingCopy.h"
#include "atracsys/stream/AtracsysDeviceContext.h"
#include "atracsys/stream/AtracsysGeometryWarnings.h"

#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/core/Time.h"
#include "host/stream/CameraDetectionsData.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/Substream.h"
#include "host/stream/TrackingStreamData.h"

#include <stdexcept>

namespace Kestrion::SpryTrack {

namespace {

constexpr const char* Category = "AtracsysTrackingStream";
constexpr const char* LeftCameraName = "Camera (left)";
constexpr const char* RightCameraName = "Camera (right)";
/// Fixed options of the spryTrack models: onboard processing (1: the host computes the 3D data)
/// and image sending.
constexpr std::uint32_t OnboardProcessingOption = 6000;
constexpr std::uint32_t SendImagesOption = 6003;
/// The wait between acquisition rounds without a pacing setting, and after a failed fetch.
constexpr int DefaultFramePacingMs = 10;
constexpr const char* FramePacingKey = "framePacingMs";
constexpr const char* ReconnectKey = "reconnect";
constexpr const char* CameraSerialKey = "cameraSerialNumber";

} // namespace

std::atomic<AtracsysTrackingStream*> AtracsysTrackingStream::m_instance{nullptr};

AtracsysTrackingStream::AtracsysTrackingStream(const std::string& name)
    : AtracsysTrackingStreamBase(name)
    , m_instruments(std::make_unique<AtracsysInstruments>())
    , m_device(std::make_unique<AtracsysDeviceContext>())
    , m_recorder(std::make_unique<AtracsysRecorder>())
    , m_converter(AtracsysDeviceContext::fiducialsCapacity, AtracsysDeviceContext::markersCapacity) {
    AtracsysTrackingStream* expected = nullptr;
    if (!m_instance.compare_exchange_strong(expected, this))
        throw std::runtime_error(
            "Can not create a second instance of AtracsysTrackingStream. Only a single instance is allowed.");
}

AtracsysTrackingStream::~AtracsysTrackingStream() {
    close();
    m_instance = nullptr;
    // Receivers are let go before the objects they may still look at.
    signalAtracsysUpdate.disconnectAll();
    signalStreamData.disconnectAll();
    signalInstrumentsModified.disconnectAll();
    signalStateChanged.disconnectAll();
    m_currentUpdate.reset();
    m_device.reset();
    m_instruments.reset();
}

bool AtracsysTrackingStream::exists() {
    return m_instance.load() != nullptr;
}

// Settings ------------------------------------------------------------------------------------

int AtracsysTrackingStream::imageIntegrationTime() const {
    std::lock_guard<std::mutex> lock(m_device->mutex()); // an SDK call
    int value = -1;
    if (!AtracsysHelpers::getIntegrationTime(m_device->library(), m_device->serialNumber(), value))
        return -1;
    return value;
}

void AtracsysTrackingStream::setImageIntegrationTime(int microseconds) {
    std::lock_guard<std::mutex> lock(m_device->mutex()); // an SDK call
    if (AtracsysHelpers::setIntegrationTime(m_device->library(), m_device->serialNumber(), microseconds))
        m_imageIntegrationTime = microseconds;
}

bool AtracsysTrackingStream::isInitialized() const {
    return !isStateOneOf({State::Closed, State::Opening, State::Closing});
}

std::vector<TrackingInstrument> AtracsysTrackingStream::instruments() const {
    return m_instruments->instruments();
}

std::vector<ConnectedCamera> AtracsysTrackingStream::connectedCameras(std::string* error) const {
    std::vector<AtracsysHelpers::DeviceData> devices;
    {
        // The open handle when there is one (SDK calls on it hold the mutex), else one of its own.
        std::lock_guard<std::mutex> lock(m_device->mutex());
        ftkLibrary library = m_device->library();
        if (library) {
            devices = AtracsysHelpers::listDevices(library);
        } else if ((library = ftkInit())) {
            devices = AtracsysHelpers::listDevices(library);
            ftkClose(&library);
        } else if (error) {
            *error = "the Atracsys tracking driver cannot be initialized";
        }
    }
    std::vector<ConnectedCamera> cameras;
    for (const auto& device : devices)
        cameras.push_back({device.serialNumber, device.name});
    return cameras;
}

ConnectedCamera AtracsysTrackingStream::cameraInUse() const {
    std::lock_guard<std::mutex> lock(m_device->mutex()); // the device record is the context's
    if (!m_device->library())
        return {}; // the record of the last open stays after the close
    return {m_device->serialNumber(), m_device->device().name};
}

// Configuration -------------------------------------------------------------------------------

void AtracsysTrackingStream::configure(const Properties* properties) {
    if (!properties)
        return;
    Configurable::configure(properties);
    int integrationTime = 0;
    if (properties->getParam("imageIntegrationTime", integrationTime)) {
        m_imageIntegrationTime = integrationTime;
        if (isInitialized())
            setImageIntegrationTime(integrationTime);
    }
    int mode = 0;
    if (properties->getParam("fiducialQueryMode", mode))
        setFiducialQueryMode(static_cast<FiducialQueryMode>(mode));
    bool flag = false;
    if (properties->getParam("queryImages", flag))
        setQueryImages(flag);
    if (properties->getParam("connect", flag))
        setStartAfterInit(flag);
    double distance = 0.0;
    if (properties->getParam("maxFiducialMarkerDistance", distance))
        setMaxFiducialMarkerDistance(distance);
    if (properties->getParam("registrationErrorThreshold", distance))
        setRegistrationErrorThreshold(distance);
    std::string recordFile;
    if (properties->getParam("recordFile", recordFile))
        m_recorder->setTarget(recordFile, properties->param("recordImages", false),
                              properties->param("recordReplace", false));
    int pacing = 0;
    if (properties->getParam(FramePacingKey, pacing))
        setFramePacingMs(pacing);
    if (properties->getParam(ReconnectKey, flag))
        setReconnect(flag);
    std::string serial;
    std::uint64_t serialNumber = 0;
    if (properties->getParam(CameraSerialKey, serial)) {
        if (parseSerial(serial, serialNumber))
            selectCameraSerial(serialNumber);
        else
            KESTRION_LOG_ERROR(Category, "The camera serial number \""
                                             << serial << "\" is not a number; it is ignored");
    }

    const Properties* targets = properties->subProperty("TrackingTargets");
    if (!targets)
        return;
    for (const Properties* target : targets->subProperties()) {
        std::string path;
        if (!target->getParam("Path", path))
            continue;
        // Qt resource paths (":/...") are not files: they stay as they are.
        if (path.compare(0, 2, ":/") != 0)
            path = target->absolutePath(path);
        addGeometry(target->name(), path);
    }
}

void AtracsysTrackingStream::configuration(Properties* properties) const {
    if (!properties)
        return;
    Configurable::configuration(properties);
    const bool initialized = isInitialized();
    const int integrationTime = initialized ? imageIntegrationTime() : m_imageIntegrationTime.load();
    if (integrationTime >= 1)
        properties->setParam("imageIntegrationTime", integrationTime);
    properties->setParam("fiducialQueryMode", static_cast<int>(m_fiducialQueryMode.load()));
    properties->setParamAttribute("fiducialQueryMode", "hidden", "true");
    properties->setParam("queryImages", queryImages());
    properties->setParamAttribute("queryImages", "hidden", "true");
    properties->setParam("connect", initialized);
    properties->setParamAttribute("connect", "hidden", "true");
    properties->setParam("maxFiducialMarkerDistance", maxFiducialMarkerDistance());
    if (registrationErrorThreshold() != 0.5)
        properties->setParam("registrationErrorThreshold", registrationErrorThreshold());
    // Written only when they differ from the defaults, so that older configurations stay as they are.
    if (framePacingMs() != DefaultFramePacingMs)
        properties->setParam(FramePacingKey, framePacingMs());
    if (reconnect()) {
        properties->setParam(ReconnectKey, true);
        properties->setParamAttribute(ReconnectKey, "hidden", "true"); // the panel's check box shows it
    }
    if (selectedCameraSerial() != 0)
        properties->setParam(CameraSerialKey, serialText(selectedCameraSerial()));

    // Names and paths are collected under the registry's lock and written after it.
    std::vector<std::pair<std::string, std::string>> targets;
    targets.reserve(m_instruments->size());
    m_instruments->modifyAll(
        [&targets](const std::string&, TrackingInstrument& instrument, AtracsysGeometry& geometry) {
            targets.emplace_back(instrument.id.name, geometry.path());
        });
    Properties* block = properties->addSubProperties("TrackingTargets");
    block->setAttribute("hidden", "true");
    for (const auto& [name, path] : targets)
        block->addSubProperties(name)->setParam("Path", path);
}

std::vector<std::string> AtracsysTrackingStream::optionalParameterNames() const {
    return {"imageIntegrationTime", "registrationErrorThreshold",
            FramePacingKey,         ReconnectKey,
            CameraSerialKey,        "recordFile",
            "recordImages",         "recordReplace"};
}

// Lifecycle -----------------------------------------------------------------------------------

void AtracsysTrackingStream::prepareImageSubstreams() {
    if (!queryImages()) {
        removeAllSubstreams();
        return;
    }
    if (numSubstreams() >= 2)
        return;
    const char* names[2] = {LeftCameraName, RightCameraName};
    for (int index = 0; index < 2; ++index)
        if (!substream(index))
            addSubstream(std::make_shared<Substream<ImageStream>>(*this, index, names[index]));
}

bool AtracsysTrackingStream::openImpl() {
    try {
        prepareImageSubstreams();
        return openDevice();
    } catch (...) {
        KESTRION_LOG_ERROR(Category, "Cannot initialize and connect Atracsys tracking system");
    }
    // Whatever the open got before the exception is given back.
    std::lock_guard<std::mutex> lock(m_device->mutex());
    m_device->releaseFrame();
    m_device->releaseRetiredFrame();
    m_device->closeLibrary();
    return false;
}

bool AtracsysTrackingStream::openDevice() {
    std::lock_guard<std::mutex> lock(m_device->mutex()); // every step is an SDK call
    AtracsysDeviceContext& device = *m_device;
    device.releaseRetiredFrame();
    device.errorCount = 0;
    device.errorCodes.clear();
    // A failed open gives back the handle and the frame records it made (also the one its error
    // report gave up: nothing reads it), so that nothing is left behind.
    auto fail = [&device] {
        device.releaseFrame();
        device.releaseRetiredFrame();
        device.closeLibrary();
        device.setDevice({});
        return false;
    };

    device.setLibrary(ftkInit());
    if (!device.library()) {
        KESTRION_LOG_ERROR(Category, "Cannot initialize Atracsys tracking driver");
        return false;
    }
    device.setDevice(AtracsysHelpers::selectDevice(device.library(), m_cameraSerial.load()));
    if (device.serialNumber() == 0)
        return fail();
    device.setOptions(AtracsysHelpers::enumerateOptions(device.library(), device.serialNumber()));
    AtracsysHelpers::logAvailableOptions(device.library(), device.serialNumber());
    AtracsysHelpers::setOption<float>(device.library(), device.serialNumber(), device.options(),
                                      m_distanceMatchingTolerance.name(),
                                      m_distanceMatchingTolerance.value());
    m_deviceTolerance = m_distanceMatchingTolerance.value();
    if (device.device().name == "sTk 180" || device.device().name == "sTk 300")
        setSpryTrackOptions();

    switch (device.createFrame()) {
    case AtracsysDeviceContext::FrameResult::Created:
        return true;
    case AtracsysDeviceContext::FrameResult::CreateFailed:
        reportErrorLocked("Cannot create frame instance.");
        return fail();
    case AtracsysDeviceContext::FrameResult::OptionsFailed:
        reportErrorLocked("Cannot set frame options.");
        return fail();
    }
    return fail();
}

void AtracsysTrackingStream::setSpryTrackOptions() {
    AtracsysDeviceContext& device = *m_device;
    if (ftkSetInt32(device.library(), device.serialNumber(), OnboardProcessingOption, 1) == ftkError::FTK_OK)
        KESTRION_LOG_INFO(Category, "Onboard processing disabled.");
    else
        KESTRION_LOG_ERROR(Category, "Onboard processing could not be disabled.");
    const bool images = queryImages();
    if (ftkSetInt32(device.library(), device.serialNumber(), SendImagesOption, images ? 1 : 0) ==
        ftkError::FTK_OK)
        KESTRION_LOG_INFO(Category, (images ? "Enabled" : "Disabled") << " sending images on the SpryTrack.");
    else
        KESTRION_LOG_ERROR(Category,
                           "Could not" << (images ? " enable" : " disable") << " images on the SpryTrack.");
}

bool AtracsysTrackingStream::closeImpl() {
    // The device mutex stays held while the geometries are marked, so that a geometry added at
    // the same time is either pushed before the close (and marked here) or added as not on the
    // device.
    std::lock_guard<std::mutex> lock(m_device->mutex());
    // The session's recording waits for the camera when the stream closes itself (the camera lost
    // or failing) or is closed to be reopened; any other close ends it. Neither waits for the
    // recorder's writer.
    if (closingItself() || health().snapshot().reopening)
        m_recorder->interrupt();
    else
        m_recorder->finish();
    m_device->releaseFrame();
    if (m_device->closeLibrary() != ftkError::FTK_OK) {
        KESTRION_LOG_ERROR(Category, "Cannot close Atracsys tracking library");
        return false;
    }
    m_instruments->modifyAll(
        [](const std::string&, AtracsysGeometry& geometry) { geometry.setOnDevice(false); });
    return true;
}

bool AtracsysTrackingStream::startImpl() {
    for (auto& [id, geometry] : m_instruments->specialObjects()) {
        if (geometry->isOnDevice())
            continue;
        std::lock_guard<std::mutex> lock(m_device->mutex()); // an SDK call, then the registry
        // Removed meanwhile (removeGeometry holds the device mutex too): nothing to push.
        if (!m_instruments->find(id))
            continue;
        if (ftkSetGeometry(m_device->library(), m_device->serialNumber(), &geometry->geometry()) ==
            ftkError::FTK_OK) {
            m_instruments->modify(id, [](const std::string&, AtracsysGeometry& g) { g.setOnDevice(true); });
        } else {
            KESTRION_LOG_ERROR(Category, "Cannot set geometry loaded from " << geometry->path()
                                                                            << " to tracking system");
        }
    }
    const int integrationTime = m_imageIntegrationTime.load();
    if (integrationTime >= 1)
        setImageIntegrationTime(integrationTime);
    if (m_recorder->wanted())
        startRecording();
    else if (m_recorder->interrupted())
        resumeRecording();
    return true;
}

void AtracsysTrackingStream::resumeRecording() {
    std::unique_lock<std::mutex> lock(m_device->mutex()); // the device's description
    const AtracsysHelpers::DeviceData device = m_device->device();
    lock.unlock();
    m_recorder->resume(device.serialNumber, static_cast<std::int32_t>(device.type));
}

std::optional<RecordingStatus> AtracsysTrackingStream::recordingStatus() const {
    return m_recorder->status();
}

void AtracsysTrackingStream::startRecording() {
    std::vector<std::pair<std::string, ftkGeometry>> geometries;
    for (auto& [id, geometry] : m_instruments->specialObjects())
        if (geometry->isOnDevice())
            geometries.emplace_back(geometry->path(), geometry->geometry());
    std::unique_lock<std::mutex> lock(m_device->mutex()); // the option values come from the device
    const AtracsysHelpers::DeviceData device = m_device->device();
    Recording::SessionHeader header = AtracsysRecordingCopy::sessionHeader(
        m_device->library(), device.serialNumber, device.type, device.name, geometries, queryImages());
    lock.unlock();
    m_recorder->start(header); // creates the file: not under the device mutex
}

bool AtracsysTrackingStream::stopImpl() {
    return true;
}

// Geometries ----------------------------------------------------------------------------------

bool AtracsysTrackingStream::addGeometry(const std::string& name, const std::string& path) {
    std::optional<AtracsysHelpers::GeometryFile> file = AtracsysHelpers::loadGeometryFile(path);
    if (!file) {
        KESTRION_LOG_ERROR(Category, "Cannot load geometry from file " << path);
        return false;
    }
    ftkGeometry* const geometry = &file->geometry;
    InstrumentModifications modifications;
    {
        // Held until the instrument exists, so that a close in between marks it as not on the
        // device (see closeImpl); registry calls come after the device mutex (lock order).
        std::lock_guard<std::mutex> lock(m_device->mutex());
        moveOutOfReservedIds(m_device->device().name, *geometry);
        const std::string id = createId(static_cast<int>(geometry->geometryId));
        bool onDevice = false;
        // An id that exists already is refused by the registry below; its geometry on the device
        // stays the registered instrument's.
        if (m_device->library() && !m_instruments->find(id)) {
            onDevice =
                ftkSetGeometry(m_device->library(), m_device->serialNumber(), &*geometry) == ftkError::FTK_OK;
            if (!onDevice)
                KESTRION_LOG_ERROR(Category,
                                   "Cannot set geometry loaded from " << path << " to tracking system");
            else
                m_recorder->recordGeometry(path, *geometry); // while a recording runs
        }
        auto special = std::make_unique<AtracsysGeometry>(path, *geometry, onDevice);
        special->setTip(file->tip);
        modifications = m_instruments->create(TrackerID(id, name), std::move(special), true);
    }
    emitSignals(modifications);
    const bool added = modifications.testFlag(InstrumentModification::InstrumentsChanged);
    const std::string id = createId(static_cast<int>(geometry->geometryId));
    if (added) // warns when the camera could confuse it with itself or another marker
        warnAboutAmbiguity(*m_instruments, id, m_distanceMatchingTolerance.value());
    else
        explainDuplicateId(*m_instruments, id, path);
    return added;
}

bool AtracsysTrackingStream::removeGeometry(const std::string& instrumentId) {
    InstrumentModifications modifications;
    {
        std::lock_guard<std::mutex> lock(m_device->mutex()); // an SDK call, then the registry
        const int geometryId = extractAtracsysId(instrumentId);
        if (ftkClearGeometry(m_device->library(), m_device->serialNumber(),
                             static_cast<std::uint32_t>(geometryId)) != ftkError::FTK_OK) {
            KESTRION_LOG_WARN(Category, "AtracsysTracking: Cannot remove geometry with id "
                                            << instrumentId << " from tracking system");
            return false;
        }
        modifications = m_instruments->remove(instrumentId);
    }
    emitSignals(modifications);
    return true;
}

std::vector<Eigen::Vector3d> AtracsysTrackingStream::geometryCoordinates(const std::string& instrumentId) {
    std::optional<ftkGeometry> geometry;
    m_instruments->modify(instrumentId,
                          [&geometry](const std::string&, AtracsysGeometry& g) { geometry = g.geometry(); });
    if (!geometry) {
        KESTRION_LOG_ERROR(Category, "Cannot query geometry coordinates from id " << instrumentId
                                                                                  << " from tracking system");
        return {};
    }
    const std::uint32_t count = std::min<std::uint32_t>(geometry->pointsCount, FTK_MAX_FIDUCIALS);
    std::vector<Eigen::Vector3d> points;
    points.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const ftk3DPoint& p = geometry->positions[i];
        points.emplace_back(p.x, p.y, p.z);
    }
    return points;
}

// Acquisition ---------------------------------------------------------------------------------

std::optional<Stream::Clock::time_point> AtracsysTrackingStream::doWork() {
    Clock::time_point wakeUp = Clock::now() + std::chrono::milliseconds(m_framePacingMs.load());
    try {
        acquire(wakeUp);
    } catch (const std::exception& e) {
        close();
        KESTRION_LOG_ERROR(
            Category, "An unexpected exception occured while running the background thread: " << e.what());
    } catch (...) {
        close();
        KESTRION_LOG_ERROR(
            Category,
            "An unexpected exception occured while running the background thread: unknown exception");
    }
    // A frame record given up by an error report during this round was still read until here.
    std::lock_guard<std::mutex> lock(m_device->mutex());
    m_device->releaseRetiredFrame();
    return wakeUp;
}

ftkError AtracsysTrackingStream::fetchFrame(ftkFrameQuery*& frame) {
    std::lock_guard<std::mutex> lock(m_device->mutex()); // the SDK call and the frame record
    AtracsysDeviceContext& device = *m_device;
    if (!device.frame() && device.library()) {
        // An error report released the record: a new one with the sizes of the open.
        switch (device.createFrame()) {
        case AtracsysDeviceContext::FrameResult::Created:
            break;
        case AtracsysDeviceContext::FrameResult::CreateFailed:
            reportErrorLocked("Cannot create frame instance.");
            break;
        case AtracsysDeviceContext::FrameResult::OptionsFailed:
            reportErrorLocked("Cannot set frame options.");
            break;
        }
    }
    frame = device.frame();
    if (!frame)
        return ftkError::FTK_ERR_INIT;
    return ftkGetLastFrame(device.library(), device.serialNumber(), frame, 100);
}

void AtracsysTrackingStream::acquire(Clock::time_point& wakeUp) {
    ftkFrameQuery* frame = nullptr;
    const ftkError result = fetchFrame(frame);
    if (!frame) {
        // No frame record can be had: the stream cannot go on.
        close();
        return;
    }
    // Paced by the camera, a fetch that failed without waiting for a frame must not be repeated at
    // once: failures keep the default wait.
    if (result != ftkError::FTK_OK && result != ftkError::FTK_WAR_NO_FRAME && m_framePacingMs.load() == 0)
        wakeUp = Clock::now() + std::chrono::milliseconds(DefaultFramePacingMs);
    if (result == ftkError::FTK_ERR_INTERNAL) {
        reportError("Internal system error, report to Atracsys.");
        return;
    }
    if (result == ftkError::FTK_WAR_NO_FRAME)
        return;
    if (result != ftkError::FTK_OK) {
        if (countFailedFetch(result))
            wakeUp = Clock::now() + std::chrono::milliseconds(500);
        return;
    }
    m_device->errorCount = 0;
    m_device->errorCodes.clear();
    m_recorder->record(*frame);
    processFrame(*frame, wakeUp);
}

bool AtracsysTrackingStream::countFailedFetch(ftkError result) {
    AtracsysDeviceContext& device = *m_device;
    ++device.errorCount;
    device.errorCodes.insert(result);
    if (device.errorCount < 51)
        return false;
    KESTRION_LOG_ERROR(
        Category, "AtracsysTrackingStream: ftkGetLastFrame returned not FTK_OK but [" << [&] {
            std::string codes;
            for (ftkError code : device.errorCodes)
                codes += std::to_string(static_cast<int>(code)) + " ";
            return codes;
        }() << "] for " << device.errorCount << " times in a row!");
    // Until frames come again, every instrument is shown untracked.
    emitSignals(m_instruments->prepareUpdate(Time::utcMilliseconds()));
    return true;
}

void AtracsysTrackingStream::processFrame(const ftkFrameQuery& fetched, Clock::time_point& wakeUp) {
    const ftkFrameQuery frame = AtracsysFrameConverter::bounded(fetched);
    const auto markerStatus = static_cast<std::int8_t>(frame.markersStat);
    bool overflow = false;
    switch (markerStatus) {
    case static_cast<std::int8_t>(ftkQueryStatus::QS_ERR_OVERFLOW):
        overflow = true;
        reportError("Marker overflow. Please increase cstMarkersCount.");
        close();
        reportError("Invalid frame status.");
        close();
        break; // the markers that fitted are still read
    case static_cast<std::int8_t>(ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE):
        reportError("Invalid reserved marker size.");
        close();
        return;
    case static_cast<std::int8_t>(ftkQueryStatus::QS_WAR_SKIPPED):
        KESTRION_LOG_DEBUG(Category, "QS WAR SKIPPED");
        break;
    case static_cast<std::int8_t>(ftkQueryStatus::QS_OK):
        break;
    default:
        reportError("Invalid frame status.");
        close();
        break;
    }

    const FiducialQueryMode mode = m_fiducialQueryMode.load();
    m_converter.selectFiducials(frame, mode, m_maxFiducialMarkerDistance.load());

    std::vector<std::shared_ptr<ImageStreamData>> images;
    if (queryImages()) {
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

    const std::uint64_t timestamp = Time::utcMilliseconds();
    m_instruments->prepareUpdate(timestamp);
    m_converter.writePoses(frame, *m_instruments);

    std::shared_ptr<TrackingStreamData> tracking = createTrackingStreamData();
    if (mode != NoFiducials)
        tracking->addComponent(m_converter.fiducialsData(frame, tracking->instruments()));
    tracking->addComponent(m_converter.tipData()); // none without a tracked tip
    if (instrumentStatusRequested())
        tracking->addComponent(
            m_statusReporter.report(frame, *m_instruments, tracking->instruments(),
                                    {m_deviceTolerance.load(), registrationErrorThreshold()}));
    if (frame.imageHeader &&
        static_cast<std::int8_t>(frame.imageHeaderStat) == static_cast<std::int8_t>(ftkQueryStatus::QS_OK)) {
        // The device record is written at open only, but it is the device context's (mutex).
        std::unique_lock<std::mutex> lock(m_device->mutex());
        auto info =
            std::make_shared<DeviceFrameInfo>(m_device->device().name, m_device->serialNumber(),
                                              frame.imageHeader->counter, frame.imageHeader->timestampUS);
        lock.unlock();
        tracking->addComponent(std::move(info));
    }
    completeFrame(*tracking); // the host's additions: names, poses in the reference's frame
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
    emitMainAndSubSignals(std::make_shared<CompoundStreamData>(std::move(tracking), std::move(subData)),
                          true);
}

void AtracsysTrackingStream::emitCameraUpdate(const ftkFrameQuery& frame,
                                              std::vector<std::shared_ptr<ImageStreamData>>& images) {
    // The update is refilled in place: receivers only see it during the emission.
    if (!m_currentUpdate)
        m_currentUpdate = std::make_unique<AtracsysUpdate>();
    m_converter.fillUpdate(frame, *m_currentUpdate);
    auto addImage = [this, &images](const char* name, const std::shared_ptr<SharedImage>& image) {
        const std::shared_ptr<SubstreamBase> sub = substream(std::string(name));
        if (auto* imageStream = sub ? dynamic_cast<const ImageStream*>(&sub->stream()) : nullptr)
            images.push_back(std::make_shared<ImageStreamData>(imageStream, image));
    };
    addImage(LeftCameraName, m_currentUpdate->left.image);
    addImage(RightCameraName, m_currentUpdate->right.image);
    signalAtracsysUpdate.emitSignal(*m_currentUpdate);
}

// Errors --------------------------------------------------------------------------------------

void AtracsysTrackingStream::reportError(const std::string& message) {
    std::lock_guard<std::mutex> lock(m_device->mutex()); // the frame record and an SDK call
    reportErrorLocked(message);
}

void AtracsysTrackingStream::reportErrorLocked(const std::string& message) {
    // A frame being processed stays readable until the end of its doWork round.
    m_device->retireFrame();
    KESTRION_LOG_ERROR(Category, "AtracsysTrackingStream: " << message);
    AtracsysHelpers::checkErrorAndLog(m_device->library());
}

} // namespace Kestrion::SpryTrack
