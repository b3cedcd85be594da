#include "python/src/PythonTracker.h"

#include "python/src/PythonError.h"
#include "python/src/PythonHost.h"

#include "host/core/Algorithm.h"
#include "host/core/CaptureLogSink.h"
#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/lib/FactoryRegistry.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/StreamAlgorithm.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/connection/CameraSelection.h"
#include "host/stream/state/InstrumentNames.h"

#include <QFile>
#include <QFileInfo>

#include <chrono>
#include <filesystem>
#include <thread>
#include <unistd.h>

namespace Kestrion::Python {

const char* const PythonTracker::AlgorithmId = "Atracsys.SpryTrackStream";

namespace {

using Kind = PythonError::Kind;

/// How long the start waits for the first frame, to see whether the camera took the geometries.
constexpr auto FirstFrameWait = std::chrono::seconds(2);

/// Collects what the host logs while it lives (warnings and errors), to explain a failure.
class LogLines {
public:
    LogLines()
        : m_sink(std::make_shared<CaptureLogSink>()) {
        Log::addSink(m_sink);
    }
    ~LogLines() { Log::removeSink(m_sink); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    /// The lines as an indented block after the message ("" when none).
    std::string text() const {
        std::string lines;
        for (const LogRecord& record : m_sink->records())
            if (record.level >= Log::Warning)
                lines += "\n  " + record.message;
        return lines;
    }

private:
    std::shared_ptr<CaptureLogSink> m_sink;
};

bool isResource(const std::string& path) {
    return path.rfind(":/", 0) == 0;
}

/// Why the geometry file cannot be read, or "" when it can (resources are those of the plugins).
std::string unreadableReason(const std::string& path) {
    const QString name = QString::fromStdString(path);
    if (!isResource(path) && QFileInfo(name).isDir())
        return "is a folder";
    QFile file(name);
    if (!file.exists())
        return isResource(path) ? "no such resource in the loaded plugins" : "No such file or directory";
    if (!file.open(QIODevice::ReadOnly))
        return file.errorString().toStdString();
    return "";
}

/// Why the recording cannot be written there, or "" when it can.
std::string outputProblem(const std::string& path, bool replace) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        return "is a folder; give a file name";
    if (fs::exists(status)) {
        if (!fs::is_regular_file(status))
            return "exists and is not a regular file";
        if (!replace)
            return "exists; give force=True to replace it";
    }
    const fs::path parent =
        fs::path(path).parent_path().empty() ? fs::path(".") : fs::path(path).parent_path();
    if (!fs::is_directory(parent, error))
        return "the folder " + parent.string() + " does not exist";
    if (::access(parent.c_str(), W_OK | X_OK) != 0)
        return "cannot write in the folder " + parent.string();
    return "";
}

int fiducialMode(const std::string& text) {
    static const char* const modes[] = {"none", "marker", "vicinity", "all"};
    for (int mode = 0; mode < 4; ++mode)
        if (text == modes[mode])
            return mode;
    throw PythonError(Kind::Input,
                      "fiducials takes \"none\", \"marker\", \"vicinity\" or \"all\", not \"" + text + "\"");
}

std::string cameraList(const std::vector<ConnectedCamera>& cameras) {
    std::string list;
    for (const ConnectedCamera& camera : cameras)
        list += (list.empty() ? "" : ", ") + camera.typeName + " " +
                CameraSelection::serialText(camera.serialNumber);
    return list.empty() ? "none" : list;
}

} // namespace

PythonTracker::PythonTracker(const PythonTrackerOptions& options)
    : m_queue(options.queueFrames != 0
                  ? options.queueFrames
                  : (options.images ? DefaultQueueFramesWithImages : DefaultQueueFrames)) {
    try {
        open(options);
        applyNamesAndReference(options);
        startTracking();
    } catch (...) {
        close(); // the failure being reported says more than an unfinished recording
        throw;
    }
}

PythonTracker::~PythonTracker() {
    close();
}

void PythonTracker::open(const PythonTrackerOptions& options) {
    PythonHost::instance().requireAlgorithm(AlgorithmId);

    Properties properties;
    properties.setParam("fiducialQueryMode", fiducialMode(options.fiducials));
    properties.setParam("queryImages", options.images);
    // Every frame, as soon as the camera has it: the consumer decides what it skips.
    properties.setParam("framePacingMs", 0);
    if (!options.serial.empty()) {
        std::uint64_t serial = 0;
        if (!CameraSelection::parseSerial(options.serial, serial) || serial == 0)
            throw PythonError(Kind::Input, "serial: \"" + options.serial +
                                               "\" is not a camera serial number (0x and hexadecimal "
                                               "digits, or decimal digits)");
        properties.setParam("cameraSerialNumber", CameraSelection::serialText(serial));
    }
    if (!options.record.empty()) {
        const std::string problem = outputProblem(options.record, options.force);
        if (!problem.empty())
            throw PythonError(Kind::Output, "recording file " + options.record + ": " + problem);
        m_recordFile = std::filesystem::absolute(options.record).string();
        properties.setParam("recordFile", m_recordFile);
        properties.setParam("recordImages", options.images);
        properties.setParam("recordReplace", options.force);
    }
    Properties* targets = properties.addSubProperties("TrackingTargets");
    for (const std::string& geometry : options.geometries) {
        const std::string path =
            isResource(geometry) ? geometry : std::filesystem::absolute(geometry).string();
        const std::string reason = unreadableReason(path);
        if (!reason.empty())
            throw PythonError(Kind::Geometry, "geometry file " + geometry + ": " + reason);
        // The instrument's name is the file's base name; two files of one base name stay two.
        const std::string base = std::filesystem::path(geometry).stem().string();
        std::string name = base;
        for (int n = 2; targets->subProperty(name); ++n)
            name = base + " (" + std::to_string(n) + ")";
        targets->addSubProperties(name)->setParam("Path", path);
        m_geometryPaths.push_back(path);
        m_geometryInstruments.push_back(name); // the instrument's id once it is loaded
    }
    properties.setParam("open", true);
    properties.setParam("start", false);

    LogLines log;
    m_algorithm = FactoryRegistry::instance().createAlgorithm(AlgorithmId);
    if (m_algorithm) {
        m_algorithm->configure(&properties);
        m_algorithm->compute();
    }
    auto* streamAlgorithm = dynamic_cast<StreamAlgorithm*>(m_algorithm.get());
    m_stream = streamAlgorithm ? dynamic_cast<TrackingStream*>(streamAlgorithm->outputStream()) : nullptr;
    if (!m_stream)
        throw PythonError(Kind::General, std::string("the tracking stream ") + AlgorithmId +
                                             " could not be created" + log.text());
    auto* cameras = dynamic_cast<CameraSelection*>(m_stream);
    if (m_algorithm->status() != Algorithm::Success || m_stream->currentState() != Stream::State::Open) {
        if (cameras) {
            std::string error;
            const std::vector<ConnectedCamera> connected = cameras->connectedCameras(&error);
            if (connected.empty())
                throw PythonError(Kind::Camera, "no camera found" + (error.empty() ? "" : ": " + error));
            std::uint64_t serial = 0;
            if (!options.serial.empty() && CameraSelection::parseSerial(options.serial, serial)) {
                bool present = false;
                for (const ConnectedCamera& camera : connected)
                    present = present || camera.serialNumber == serial;
                if (!present)
                    throw PythonError(Kind::Camera,
                                      "camera " + CameraSelection::serialText(serial) +
                                          " is not connected; connected: " + cameraList(connected));
            }
        }
        throw PythonError(Kind::Camera, "the camera could not be opened" + log.text());
    }
    if (cameras) {
        const ConnectedCamera used = cameras->cameraInUse();
        m_cameraType = used.typeName;
        m_cameraSerial = used.serialNumber;
    }
    const std::vector<TrackingInstrument> instruments = m_stream->instruments();
    for (std::size_t i = 0; i < m_geometryInstruments.size(); ++i) {
        const std::string target = m_geometryInstruments[i];
        m_geometryInstruments[i].clear();
        for (const TrackingInstrument& instrument : instruments)
            if (instrument.id.name == target)
                m_geometryInstruments[i] = instrument.ID();
        if (m_geometryInstruments[i].empty())
            throw PythonError(Kind::Geometry,
                              "geometry file " + options.geometries[i] + " could not be loaded" + log.text());
    }
}

std::string PythonTracker::instrumentOf(const std::string& key) const {
    for (const TrackingInstrument& instrument : m_stream->instruments())
        if (instrument.ID() == key)
            return key;
    const auto named = m_nameToId.find(key);
    if (named != m_nameToId.end())
        return named->second;
    const std::string path = isResource(key) ? key : std::filesystem::absolute(key).string();
    for (std::size_t i = 0; i < m_geometryPaths.size(); ++i)
        if (m_geometryPaths[i] == path)
            return m_geometryInstruments[i];
    return "";
}

void PythonTracker::applyNamesAndReference(const PythonTrackerOptions& options) {
    if (!options.names.empty()) {
        InstrumentNames names;
        for (const auto& [key, name] : options.names) {
            const std::string id = instrumentOf(key);
            if (id.empty())
                throw PythonError(Kind::Input,
                                  "names: \"" + key +
                                      "\" is neither an instrument id nor one of the geometry files");
            if (const auto problem = names.setName(id, name))
                throw PythonError(Kind::Input, "names: " + *problem);
            m_nameToId[name] = id;
        }
        m_stream->setInstrumentNames(names);
    }
    if (!options.reference.empty()) {
        const std::string id = instrumentOf(options.reference);
        if (id.empty())
            throw PythonError(Kind::Input,
                              "reference: \"" + options.reference +
                                  "\" is neither an instrument id, a name nor one of the geometry files");
        m_stream->setReferenceInstrument(id);
    }
}

void PythonTracker::startTracking() {
    // The frames say why an instrument is not tracked.
    m_stream->requestInstrumentStatus();
    m_statusRequested = true;
    // Runs on the stream's worker thread: one pointer into the queue, nothing else.
    PythonFrameQueue* queue = &m_queue;
    m_connection = m_stream->signalStreamData.connect(
        [queue](const std::shared_ptr<const StreamData>& data) { queue->push(data); });
    LogLines log;
    m_startCalled = true; // from here on a recording is expected
    if (!m_stream->start())
        throw PythonError(Kind::Camera, "tracking could not be started" + log.text());
    // The start puts the geometries on the camera; one it refused would never be tracked.
    for (const InstrumentRefusal& refusal : m_stream->refusedInstruments())
        throw PythonError(Kind::Geometry,
                          "the camera refused the geometry of " + refusal.source + ": " + refusal.reason);
    // A stream that does not list its refusals still tells in its first frame's instrument
    // status: after the start, a geometry that is not on the camera was refused.
    const auto first = m_queue.peek(FirstFrameWait);
    const auto tracking = findStreamData<TrackingStreamData>(first);
    const auto* status = tracking ? tracking->component<InstrumentStatusData>() : nullptr;
    for (std::size_t i = 0; status && i < m_geometryInstruments.size(); ++i) {
        const InstrumentStatusData::Entry* entry = status->find(m_geometryInstruments[i]);
        if (entry && entry->state == InstrumentStatusData::State::NotOnCamera)
            throw PythonError(Kind::Geometry, "the camera refused the geometry of " + m_geometryPaths[i] +
                                                  ": " + entry->reason);
    }
}

std::string PythonTracker::close() {
    std::lock_guard<std::mutex> closing(m_closeMutex);
    const bool wasOpen = m_algorithm != nullptr;
    m_closed.store(true);
    m_connection.disconnect();
    TrackingStream* stream = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_streamMutex);
        stream = m_stream;
    }
    if (stream) {
        stream->close();
        if (m_statusRequested)
            stream->releaseInstrumentStatus();
        const StreamHealth::Snapshot last = stream->health().snapshot();
        std::lock_guard<std::mutex> lock(m_streamMutex);
        m_lastHealth = last;
        m_stream = nullptr;
    }
    m_algorithm.reset(); // the recorder completes its file when the stream goes
    m_queue.close();
    // A completed recording has its name; one that is not keeps its ".part" (or has no file).
    std::error_code error;
    if (!wasOpen || m_recordFile.empty() || !m_startCalled ||
        (std::filesystem::is_regular_file(m_recordFile, error) &&
         !std::filesystem::exists(m_recordFile + ".part", error)))
        return "";
    return "the recording " + m_recordFile + " was not completed" +
           (std::filesystem::exists(m_recordFile + ".part", error)
                ? "; " + m_recordFile + ".part holds what was written"
                : "");
}

bool PythonTracker::running() const {
    std::lock_guard<std::mutex> lock(m_streamMutex);
    return m_stream && m_stream->isStateOneOf({Stream::State::Running});
}

StreamHealth::Snapshot PythonTracker::health() const {
    std::lock_guard<std::mutex> lock(m_streamMutex);
    return m_stream ? m_stream->health().snapshot() : m_lastHealth;
}

std::vector<TrackingInstrument> PythonTracker::instruments() const {
    std::lock_guard<std::mutex> lock(m_streamMutex);
    return m_stream ? m_stream->instruments() : std::vector<TrackingInstrument>{};
}

} // namespace Kestrion::Python
