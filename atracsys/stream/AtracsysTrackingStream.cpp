#include "atracsys/stream/AtracsysTrackingStream.h"

#include "atracsys/device/AtracsysDeviceHelpers.h"
#include "atracsys/device/AtracsysDeviceList.h"
#include "atracsys/device/AtracsysOptionHelpers.h"
#include "atracsys/recording/AtracsysRecorder.h"
#include "atracsys/recording/AtracsysRecordingCopy.h"
#include "atracsys/stream/AtracsysAcquisition.h"
#include "atracsys/stream/AtracsysDeviceContext.h"
#include "atracsys/stream/AtracsysDeviceReadings.h"
#include "atracsys/stream/AtracsysGeometryManager.h"

#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/stream/ImageStream.h"
#include "host/stream/Substream.h"

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

} // namespace

std::atomic<AtracsysTrackingStream*> AtracsysTrackingStream::m_instance{nullptr};

AtracsysTrackingStream::AtracsysTrackingStream(const std::string& name)
    : AtracsysTrackingStreamBase(name)
    , m_instruments(std::make_unique<AtracsysInstruments>())
    , m_device(std::make_unique<AtracsysDeviceContext>())
    , m_recorder(std::make_unique<AtracsysRecorder>())
    , m_geometries(std::make_unique<AtracsysGeometryManager>(*this, *m_device, *m_instruments, *m_recorder))
    , m_acquisition(std::make_unique<AtracsysAcquisition>(*this, *m_device, m_settings, *m_recorder)) {
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
    m_acquisition.reset();
    m_geometries.reset();
    m_device.reset();
    m_instruments.reset();
}

bool AtracsysTrackingStream::exists() {
    return m_instance.load() != nullptr;
}

// Settings ------------------------------------------------------------------------------------

int AtracsysTrackingStream::imageIntegrationTime() const {
    AtracsysDeviceContext::Lock lock(*m_device); // an SDK call
    int value = -1;
    if (!AtracsysHelpers::getIntegrationTime(m_device->library(), m_device->serialNumber(), value))
        return -1;
    return value;
}

void AtracsysTrackingStream::setImageIntegrationTime(int microseconds) {
    AtracsysDeviceContext::Lock lock(*m_device); // an SDK call
    if (AtracsysHelpers::setIntegrationTime(m_device->library(), m_device->serialNumber(), microseconds))
        m_settings.setCachedIntegrationTime(microseconds);
}

bool AtracsysTrackingStream::isInitialized() const {
    return !isStateOneOf({State::Closed, State::Opening, State::Closing});
}

std::vector<TrackingInstrument> AtracsysTrackingStream::instruments() const {
    return m_instruments->instruments();
}

std::vector<InstrumentRefusal> AtracsysTrackingStream::refusedInstruments() const {
    return m_geometries->refusedInstruments();
}

std::vector<ConnectedCamera> AtracsysTrackingStream::connectedCameras(std::string* error) const {
    std::vector<AtracsysHelpers::DeviceData> devices;
    {
        // The open handle when there is one (SDK calls on it hold the mutex), else one of its own.
        AtracsysDeviceContext::Lock lock(*m_device);
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

std::vector<DeviceReading> AtracsysTrackingStream::readDevice() const {
    // SDK calls; the fetch yields the mutex to a waiting caller between frames.
    AtracsysDeviceContext::Lock lock(*m_device);
    return AtracsysDeviceReadings::read(m_device->library(), m_device->serialNumber());
}

ConnectedCamera AtracsysTrackingStream::cameraInUse() const {
    AtracsysDeviceContext::Lock lock(*m_device); // the device record is the context's
    if (!m_device->library())
        return {}; // the record of the last open stays after the close
    return {m_device->serialNumber(), m_device->device().name};
}

// Configuration -------------------------------------------------------------------------------

void AtracsysTrackingStream::configure(const Properties* properties) {
    if (!properties)
        return;
    Configurable::configure(properties);
    m_settings.configure(*properties, *this, *m_recorder);
}

void AtracsysTrackingStream::configuration(Properties* properties) const {
    if (!properties)
        return;
    Configurable::configuration(properties);
    m_settings.configuration(*properties, *this, m_geometries->targets());
}

std::vector<std::string> AtracsysTrackingStream::optionalParameterNames() const {
    return AtracsysStreamSettings::optionalKeys();
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
    AtracsysDeviceContext::Lock lock(*m_device);
    m_device->releaseFrame();
    m_device->releaseRetiredFrame();
    m_device->closeLibrary();
    return false;
}

bool AtracsysTrackingStream::openDevice() {
    AtracsysDeviceContext::Lock lock(*m_device); // every step is an SDK call
    AtracsysDeviceContext& device = *m_device;
    device.releaseRetiredFrame();
    m_geometries->clearRefusals();
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
    device.setDevice(AtracsysHelpers::selectDevice(device.library(), m_settings.cameraSerial()));
    if (device.serialNumber() == 0)
        return fail();
    device.setOptions(AtracsysHelpers::enumerateOptions(device.library(), device.serialNumber()));
    AtracsysHelpers::logAvailableOptions(device.library(), device.serialNumber());
    AtracsysHelpers::setOption<float>(device.library(), device.serialNumber(), device.options(),
                                      m_distanceMatchingTolerance.name(),
                                      m_distanceMatchingTolerance.value());
    m_acquisition->prepareForOpen(m_distanceMatchingTolerance.value());
    if (device.device().name == "sTk 180" || device.device().name == "sTk 300")
        setSpryTrackOptions();

    switch (device.createFrame()) {
    case AtracsysDeviceContext::FrameResult::Created:
        return true;
    case AtracsysDeviceContext::FrameResult::CreateFailed:
        device.reportError("Cannot create frame instance.");
        return fail();
    case AtracsysDeviceContext::FrameResult::OptionsFailed:
        device.reportError("Cannot set frame options.");
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
    AtracsysDeviceContext::Lock lock(*m_device);
    // The recorder hook. The session's recording waits for the camera when the stream closes itself (the
    // camera lost or failing) or is closed to be reopened; any other close ends it. Neither waits for the
    // recorder's writer.
    m_closedForGood = !closingItself() && !health().snapshot().reopening;
    if (m_closedForGood)
        m_recorder->finish();
    else
        m_recorder->interrupt();
    m_device->releaseFrame();
    if (m_device->closeLibrary() != ftkError::FTK_OK) {
        KESTRION_LOG_ERROR(Category, "Cannot close Atracsys tracking library");
        return false;
    }
    m_geometries->markAllNotOnDevice();
    return true;
}

bool AtracsysTrackingStream::startImpl() {
    m_geometries->pushGeometries();
    const int integrationTime = m_settings.cachedIntegrationTime();
    if (integrationTime >= 1)
        setImageIntegrationTime(integrationTime);
    if (m_recorder->wanted())
        beginRecording();
    else if (m_recorder->interrupted())
        resumeRecording();
    return true;
}

void AtracsysTrackingStream::resumeRecording() {
    // The recorder hook: the recording goes on with the reopened camera.
    AtracsysDeviceContext::Lock lock(*m_device); // the device's description
    const AtracsysHelpers::DeviceData device = m_device->device();
    lock.unlock();
    m_recorder->resume(device.serialNumber, static_cast<std::int32_t>(device.type));
}

std::optional<RecordingStatus> AtracsysTrackingStream::recordingStatus() const {
    return m_recorder->status();
}

bool AtracsysTrackingStream::recordTo(const std::string& file, bool images, bool replace) {
    if (m_recorder->recording())
        m_recorder->finish(); // one session recording at a time: the new file follows this one
    m_recorder->setTarget(file, images, replace);
    // A stream that runs records from now on. One that starts at the same time may begin the
    // recording itself (startImpl): the recorder lets only the first start() through.
    if (!isStateOneOf({State::Starting, State::Running}))
        return true;
    if (beginRecording()) {
        // The stream may have closed between the state's check and the recording's start, and
        // its close then found no recording to interrupt or finish: done here, as the close would
        // have. Under the device mutex, which the close holds while it ends the recording.
        AtracsysDeviceContext::Lock lock(*m_device);
        if (!m_device->library()) {
            if (m_closedForGood)
                m_recorder->finish();
            else
                m_recorder->interrupt();
        }
        return true;
    }
    // Refused, or begun by the start meanwhile: the status of this file says which.
    const std::optional<RecordingStatus> status = m_recorder->status();
    return status && status->file == file && status->state != RecordingStatus::State::CutShort;
}

void AtracsysTrackingStream::stopRecording() {
    m_recorder->setTarget({}, false); // a stream started later records nothing
    m_recorder->finish();
}

bool AtracsysTrackingStream::beginRecording() {
    // The recorder hook: the recording starts with the camera's description and its geometries.
    std::vector<std::pair<std::string, ftkGeometry>> geometries;
    for (auto& [id, geometry] : m_instruments->specialObjects())
        if (geometry->isOnDevice())
            geometries.emplace_back(geometry->path(), geometry->geometry());
    AtracsysDeviceContext::Lock lock(*m_device); // the option values come from the device
    const AtracsysHelpers::DeviceData device = m_device->device();
    Recording::SessionHeader header = AtracsysRecordingCopy::sessionHeader(
        m_device->library(), device.serialNumber, device.type, device.name, geometries,
        queryImages() && m_recorder->imagesWanted());
    lock.unlock();
    return m_recorder->start(header); // creates the file: not under the device mutex
}

bool AtracsysTrackingStream::stopImpl() {
    return true;
}

// Geometries and acquisition: their own classes ---------------------------------------------

bool AtracsysTrackingStream::addGeometry(const std::string& name, const std::string& path) {
    return m_geometries->addGeometry(name, path, m_distanceMatchingTolerance.value());
}

bool AtracsysTrackingStream::removeGeometry(const std::string& instrumentId) {
    return m_geometries->removeGeometry(instrumentId);
}

bool AtracsysTrackingStream::reloadGeometry(const std::string& instrumentId, const std::string& name,
                                            const std::string& path) {
    return m_geometries->reloadGeometry(instrumentId, name, path, m_distanceMatchingTolerance.value());
}

std::vector<Eigen::Vector3d> AtracsysTrackingStream::geometryCoordinates(const std::string& instrumentId) {
    return m_geometries->geometryCoordinates(instrumentId);
}

std::optional<Stream::Clock::time_point> AtracsysTrackingStream::doWork() {
    return m_acquisition->round();
}

ftkError AtracsysTrackingStream::fetchFrame(ftkFrameQuery*& frame) {
    return m_acquisition->fetchFrame(frame);
}

void AtracsysTrackingStream::processFrame(const ftkFrameQuery& frame, Clock::time_point& wakeUp) {
    m_acquisition->processFrame(frame, wakeUp);
}

} // namespace Kestrion::SpryTrack
