#include "host/apps/kestrion/TrackSession.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/TrackConfiguration.h"
#include "host/apps/kestrion/TrackOptions.h"
#include "host/apps/kestrion/TrackTipColumns.h"
#include "host/core/Configurable.h"
#include "host/core/Log.h"
#include "host/core/Time.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/connection/CameraSelection.h"
#include "host/stream/state/InstrumentNames.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <thread>
#include <unistd.h>

namespace Kestrion::Cli {

namespace {

/// Which camera is used when several are connected and none was chosen; empty otherwise.
std::string cameraChoiceNote(const CameraSelection& cameras) {
    const std::vector<ConnectedCamera> connected = cameras.connectedCameras(nullptr);
    if (connected.size() < 2)
        return "";
    const ConnectedCamera used = cameras.cameraInUse();
    std::string others;
    for (const ConnectedCamera& camera : connected)
        if (camera.serialNumber != used.serialNumber)
            others += (others.empty() ? "" : ", ") + camera.typeName + " " +
                      CameraSelection::serialText(camera.serialNumber);
    return "Using camera " + used.typeName + " " + CameraSelection::serialText(used.serialNumber) +
           "; also connected: " + others + " (choose one with --serial)\n";
}

std::string formatSeconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", seconds);
    return text;
}

double seconds(StreamHealth::Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

} // namespace

TrackSession::TrackSession(CommandContext& context, const TrackOptions& options,
                           const TrackConfiguration& configuration)
    : m_options(options)
    , m_configuration(configuration)
    , m_out(context.out())
    , m_err(context.err())
    , m_startMs(Time::utcMilliseconds())
    , m_startTime(std::chrono::steady_clock::now())
    , m_outputs(options, context.out(), context.err())
    , m_lastRefresh(m_startTime) {
    m_tty = &m_out == &std::cout && ::isatty(STDOUT_FILENO);
}

TrackSession::~TrackSession() {
    stopListening();
    if (m_stream && m_stream->currentState() != Stream::State::Closed)
        m_stream->close();
    if (m_statusRequested)
        m_stream->releaseInstrumentStatus();
}

int TrackSession::run() {
    if (!checkOutputs() || !open() || !start())
        return 1;
    track();
    return finish();
}

// Outputs -------------------------------------------------------------------------------------

bool TrackSession::checkOutputs() {
    return m_outputs.open(TrackTipColumns::anyTip(m_configuration.targets), !referenceId().empty());
}

// Open: the stream, its geometries, the camera ------------------------------------------------

bool TrackSession::open() {
    LogCollector log; // the reasons of a failure, for the user
    m_camera = std::make_unique<CameraStream>(m_configuration.properties);
    m_stream = m_camera->stream();
    switch (m_camera->outcome()) {
    case CameraStream::Outcome::Opened:
        break;
    case CameraStream::Outcome::NoStream:
        m_err << "kestrion track: the tracking stream could not be created\n" << log.errorText();
        return false;
    case CameraStream::Outcome::NoCamera:
        m_err << "kestrion track: no camera found\n";
        return false;
    case CameraStream::Outcome::Closed:
    case CameraStream::Outcome::OpenFailed:
        m_err << "kestrion track: the camera could not be opened\n" << log.errorText();
        return false;
    }
    auto* cameras = dynamic_cast<CameraSelection*>(m_stream);
    if (cameras && !m_options.serialNumber)
        m_out << cameraChoiceNote(*cameras);
    if (!geometriesLoaded(log) || !namesApplied())
        return false;
    std::string error;
    if (!m_igtl.start(m_options, *m_stream, m_out, &error) ||
        !m_ros2.start(m_options, *m_stream, m_out, &error)) {
        m_err << "kestrion track: " << error << "\n";
        return false;
    }
    // The table and the CSV say why an instrument is not tracked.
    m_stream->requestInstrumentStatus();
    m_statusRequested = true;
    return true;
}

bool TrackSession::geometriesLoaded(const LogCollector& log) {
    const std::vector<TrackingInstrument> instruments = m_stream->instruments();
    m_instruments = instruments.size();
    const std::vector<InstrumentRefusal> refusals = m_stream->refusedInstruments();
    for (const auto& target : m_configuration.targets) {
        const bool loaded = std::any_of(
            instruments.begin(), instruments.end(),
            [&target](const TrackingInstrument& instrument) { return instrument.id.name == target.name; });
        if (loaded)
            continue;
        std::string reason;
        for (const InstrumentRefusal& refusal : refusals)
            if (reason.empty() && refusal.source == target.path)
                reason = refusal.reason;
        if (reason.empty())
            reason = geometryLoadReason(log.errors(), target.path);
        m_err << "kestrion track: geometry file " << target.path << " could not be loaded"
              << (reason.empty() ? "" : ": " + reason) << "\n";
        return false;
    }
    return true;
}

std::string TrackSession::referenceId() const {
    if (!m_options.referenceId.empty())
        return m_options.referenceId;
    return m_configuration.properties.param("referenceInstrument", std::string());
}

bool TrackSession::namesApplied() {
    // --name and --reference name instruments by id: each must be one the stream holds.
    const std::vector<TrackingInstrument> instruments = m_stream->instruments();
    std::string known;
    for (const TrackingInstrument& instrument : instruments)
        known += (known.empty() ? "" : ", ") + instrument.ID();
    auto holds = [&instruments](const std::string& id) {
        return std::any_of(instruments.begin(), instruments.end(),
                           [&id](const TrackingInstrument& instrument) { return instrument.ID() == id; });
    };
    const auto current = m_stream->instrumentNames();
    InstrumentNames names = current ? *current : InstrumentNames();
    for (const auto& [id, name] : m_options.names) {
        if (!holds(id)) {
            m_err << "kestrion track: --name " << id << "=" << name << ": no instrument " << id
                  << " (instruments: " << known << ")\n";
            return false;
        }
        if (const auto problem = names.setName(id, name)) {
            m_err << "kestrion track: --name " << id << "=" << name << ": " << *problem << "\n";
            return false;
        }
    }
    if (!m_options.names.empty())
        m_stream->setInstrumentNames(names);
    const std::string reference = referenceId();
    if (!reference.empty() && !holds(reference)) {
        m_err << "kestrion track: reference " << reference << ": no instrument " << reference
              << " (instruments: " << known << ")\n";
        return false;
    }
    if (!m_options.referenceId.empty())
        m_stream->setReferenceInstrument(m_options.referenceId);
    return true;
}

// Start: listen to the frames, start the camera -----------------------------------------------

void TrackSession::listen() {
    // Runs on the stream's worker thread (signals are synchronous): it only hands the frame over.
    // Only the frames whose images will be saved keep them in the queue: the others pass their
    // tracking data alone, so that the camera images (2 x 2.2 MB a frame) are released at once
    // and do not pile up while the command thread encodes a PNG pair.
    const bool keepImages = m_outputs.savesImages();
    const auto imageIntervalMs = static_cast<std::uint64_t>(std::llround(m_options.imageIntervalS * 1000.0));
    m_connection = m_stream->signalStreamData.connect(
        [this, keepImages, imageIntervalMs,
         nextImageMs = std::uint64_t(0)](const std::shared_ptr<const StreamData>& data) mutable {
            const auto* compound = dynamic_cast<const CompoundStreamData*>(data.get());
            if (!compound) {
                m_queue.push(data);
            } else if (keepImages && compound->arrivalTimestamp() >= nextImageMs) {
                nextImageMs = compound->arrivalTimestamp() + imageIntervalMs;
                m_queue.push(data);
            } else {
                m_queue.push(compound->mainData());
            }
        });
}

bool TrackSession::start() {
    listen();
    m_stopSignals.emplace();
    if (!m_stream->start()) {
        stopListening();
        m_stream->close();
        m_err << "kestrion track: tracking could not be started\n";
        return false;
    }
    // A geometry the camera refused would never be tracked.
    for (const InstrumentRefusal& refusal : m_stream->refusedInstruments())
        for (const auto& target : m_configuration.targets)
            if (refusal.source == target.path) {
                stopListening();
                m_stream->close();
                m_err << "kestrion track: the camera refused the geometry of " << target.path << "\n";
                return false;
            }
    m_outputs.keep();
    if (m_options.integrationTimeUS) {
        // The start applies it; the camera may refuse or clamp it. While open, the stream's
        // configuration holds the camera's own value.
        Properties live;
        if (const auto* configurable = dynamic_cast<const Configurable*>(m_stream))
            configurable->configuration(&live);
        const int used = live.param("imageIntegrationTime", -1);
        if (used != *m_options.integrationTimeUS)
            m_err << "kestrion track: the camera did not take the integration time of "
                  << *m_options.integrationTimeUS << " us; it uses "
                  << (used > 0 ? std::to_string(used) + " us" : std::string("an unknown value")) << "\n";
    }
    m_out << "Tracking " << m_instruments << " instrument(s); Ctrl-C ends.\n" << std::flush;
    if (m_configuration.reconnect) // --reconnect, or the workspace's "reconnect"
        m_reconnector.emplace(*m_stream).arm();
    return true;
}

void TrackSession::stopListening() {
    m_reconnector.reset();
    m_connection.disconnect();
}

// Track: the frames until the run ends --------------------------------------------------------

void TrackSession::track() {
    std::vector<std::shared_ptr<const StreamData>> batch;
    batch.reserve(256);
    auto lastFlush = m_startTime;
    bool done = false;
    while (!done) {
        // Read before the frames are taken: a source that ended emitted its last frame before.
        const StreamHealth::State health = m_stream->health().snapshot().state;
        batch.clear();
        // The frames queued meanwhile, about 50 times a second.
        m_queue.takeAll(batch, std::chrono::milliseconds(20));
        takeFrames(batch);
        const auto now = std::chrono::steady_clock::now();
        if (now - lastFlush >= std::chrono::seconds(1)) {
            m_outputs.flush();
            lastFlush = now;
        }
        const double elapsed = std::chrono::duration<double>(now - m_startTime).count();
        done = (m_options.frames && m_statistics.framesReceived() >= *m_options.frames) ||
               (m_options.durationS && elapsed >= *m_options.durationS) || StopSignals::received() != 0;
        if (health == StreamHealth::State::Ended) {
            m_ended = true;
            done = true;
        } else if (!m_reconnector && !m_stream->isStateOneOf({Stream::State::Running})) {
            m_cameraLost = true;
            done = true;
        }
        if (done || now - m_lastRefresh >= std::chrono::duration<double>(m_options.refreshS))
            showTable(now);
    }
}

void TrackSession::takeFrames(const std::vector<std::shared_ptr<const StreamData>>& batch) {
    // A reopened camera counts its frames anew. Its first frames can arrive before the reopening
    // is done, so the count of reopenings begun is what tells.
    const std::uint64_t reopenings = m_stream->health().snapshot().reopenings;
    if (reopenings != m_reopenings) {
        m_reopenings = reopenings;
        m_statistics.forgetFrameCounter();
    }
    for (const auto& item : batch) {
        if (m_options.frames && m_statistics.framesReceived() >= *m_options.frames)
            return;
        const auto* compound = dynamic_cast<const CompoundStreamData*>(item.get());
        const auto* frame =
            dynamic_cast<const TrackingStreamData*>(compound ? compound->mainData().get() : item.get());
        if (!frame)
            continue;
        const std::uint64_t index = m_statistics.framesReceived();
        m_statistics.add(*frame, frame->component<DeviceFrameInfo>());
        if (!m_firstPoseMs && m_statistics.framesWithPose() > 0)
            m_firstPoseMs = frame->arrivalTimestamp() > m_startMs ? frame->arrivalTimestamp() - m_startMs : 0;
        m_outputs.write(index, *frame, compound);
    }
}

void TrackSession::showTable(std::chrono::steady_clock::time_point now) {
    const double window = std::chrono::duration<double>(now - m_lastRefresh).count();
    if (window > 0.0)
        m_rateHz = static_cast<double>(m_statistics.framesReceived() - m_framesAtRefresh) / window;
    m_framesAtRefresh = m_statistics.framesReceived();
    m_lastRefresh = now;
    std::string table =
        m_statistics.table(Time::utcMilliseconds(), std::chrono::duration<double>(now - m_startTime).count(),
                           m_rateHz, m_stream->health().snapshot());
    if (m_reconnector && m_reconnector->state() == StreamReconnector::State::Waiting)
        table += "State: waiting for the camera\n";
    table += m_igtl.table();
    table += m_ros2.table();
    if (m_tty && m_tableLines > 0)
        m_out << "\033[" << m_tableLines << "F\033[J"; // redraw in place
    m_out << table << (m_tty ? "" : "\n") << std::flush;
    m_tableLines = static_cast<std::size_t>(std::count(table.begin(), table.end(), '\n'));
}

// Finish: close the camera, complete the files, summarise --------------------------------------

std::optional<RecordingStatus> TrackSession::recordingOutcome() {
    if (m_options.recordFile.empty())
        return std::nullopt;
    // The recorder's writer completes the file after the close, on its own thread: its status
    // says when. A recording with images can take a while to finish writing.
    const auto started = std::chrono::steady_clock::now();
    bool said = false;
    for (;;) {
        const std::optional<RecordingStatus> status = m_stream->recordingStatus();
        const auto waited = std::chrono::steady_clock::now() - started;
        if (!status || status->state != RecordingStatus::State::Recording || waited > std::chrono::minutes(5))
            return status;
        if (!said && waited > std::chrono::seconds(1)) {
            m_out << "Finishing the recording " << m_options.recordFile << " ...\n" << std::flush;
            said = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

int TrackSession::finish() {
    // Stop listening first, then stop and close the camera.
    stopListening();
    const double elapsedS =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - m_startTime).count();
    const StreamHealth::Snapshot health = m_stream->health().snapshot(); // before the close stops it
    const bool closed = m_stream->close();
    m_stream->releaseInstrumentStatus();
    m_statusRequested = false;
    m_igtl.stop();
    m_ros2.stop();
    const std::optional<RecordingStatus> recording = recordingOutcome();
    m_stream = nullptr;
    m_camera->release(); // a recording still waiting for the camera is finished when the stream goes
    bool failed = false;
    if (!closed) {
        m_err << "kestrion track: the camera could not be closed properly\n";
        failed = true;
    }
    if (m_cameraLost) {
        m_err << "kestrion track: the camera stopped delivering frames (stream no longer running)\n";
        failed = true;
    } else if (!m_ended && health.state == StreamHealth::State::NotDelivering) {
        m_err << "kestrion track: the camera stopped delivering frames ("
              << (health.lastError.empty()
                      ? "no frame for " +
                            formatSeconds(health.sinceLastData ? seconds(*health.sinceLastData) : elapsedS) +
                            " s"
                      : std::string("failed fetches since the last frame"))
              << ")\n";
        failed = true;
    }

    m_out << "Summary: " << m_statistics.framesReceived() << " frames received, "
          << m_statistics.framesDropped() << " dropped, in " << formatSeconds(elapsedS) << " s";
    if (m_firstPoseMs)
        m_out << "; first pose after " << *m_firstPoseMs << " ms";
    else
        m_out << "; no instrument was tracked";
    if (health.outages > 0)
        m_out << "; the camera stopped delivering " << health.outages << " time(s), "
              << formatSeconds(seconds(health.outageTime)) << " s in all";
    if (StopSignals::received() != 0)
        m_out << "; ended by signal " << StopSignals::received();
    m_out << "\n";
    m_out << m_ros2.summary();
    if (m_ended)
        m_out << "The recording ended after " << m_statistics.framesReceived() << " frames\n";
    m_outputs.finish(recording);
    failed = m_outputs.failed() || failed;
    if (m_statistics.framesReceived() == 0 && StopSignals::received() == 0 && !m_ended) {
        m_err << "kestrion track: no frame was received from the camera\n";
        failed = true;
    }
    return failed ? 1 : 0;
}

} // namespace Kestrion::Cli
