#include "host/apps/kestrion/TrackCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/OutputPath.h"
#include "host/apps/kestrion/StopSignals.h"
#include "host/apps/kestrion/TrackConfiguration.h"
#include "host/apps/kestrion/TrackCsvWriter.h"
#include "host/apps/kestrion/TrackFrameQueue.h"
#include "host/apps/kestrion/TrackIgtl.h"
#include "host/apps/kestrion/TrackImageSaver.h"
#include "host/apps/kestrion/TrackOptions.h"
#include "host/apps/kestrion/TrackRos2.h"
#include "host/apps/kestrion/TrackSequenceWriter.h"
#include "host/apps/kestrion/TrackStatistics.h"
#include "host/apps/kestrion/TrackTipColumns.h"
#include "host/core/CaptureLogSink.h"
#include "host/core/Configurable.h"
#include "host/core/Log.h"
#include "host/core/Time.h"
#include "host/lib/FactoryRegistry.h"
#include "host/licensing/LicenseService.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/StreamAlgorithm.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/connection/CameraSelection.h"
#include "host/stream/connection/StreamReconnector.h"

#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <iostream>
#include <optional>
#include <ostream>
#include <unistd.h>

namespace Kestrion::Cli {

namespace {

const char* const PluginId = "Kestrion.AtracsysTrackingSpryTrack";

/// Collects the warnings and errors logged while it lives, to explain a failure.
class LogCollector {
public:
    LogCollector()
        : m_sink(std::make_shared<CaptureLogSink>()) {
        Log::addSink(m_sink);
    }
    ~LogCollector() { Log::removeSink(m_sink); }
    LogCollector(const LogCollector&) = delete;
    LogCollector& operator=(const LogCollector&) = delete;

    std::vector<LogRecord> errors() const {
        std::vector<LogRecord> result;
        for (auto& record : m_sink->records())
            if (record.level >= Log::Error)
                result.push_back(record);
        return result;
    }

private:
    std::shared_ptr<CaptureLogSink> m_sink;
};

/// Watches for the stream's reports of a run of failed frame fetches. Both the reports and the
/// frames come from the stream's worker thread, so the count of frames delivered before the last
/// report tells whether a frame came after it: a camera that stopped for good (unplugged) leaves
/// a report as the last word, a passing run of failures does not.
class FetchFailureWatch : public LogSink {
public:
    void frameDelivered() { m_frames.fetch_add(1); }
    void write(const LogRecord& record) override {
        if (record.level >= Log::Error &&
            record.message.find("ftkGetLastFrame returned not FTK_OK") != std::string::npos)
            m_framesAtLastReport.store(m_frames.load() + 1); // 0 stays "no report"
    }
    bool cameraStopped() const {
        const std::uint64_t at = m_framesAtLastReport.load();
        return at != 0 && at - 1 == m_frames.load();
    }

private:
    std::atomic<std::uint64_t> m_frames{0};
    std::atomic<std::uint64_t> m_framesAtLastReport{0};
};

/// Why the tracking algorithm is not available, from what the loader recorded.
std::string pluginProblem(const CommandContext& context) {
    if (const PluginRecord* record = context.plugins().find(PluginId)) {
        if (record->status == PluginStatus::Inactive)
            return "the Atracsys tracking plugin is not licensed (feature \"Atracsys\" missing from the "
                   "licence " +
                   LicenseService::licensePath() + ")";
        return "the Atracsys tracking plugin is not active: " + record->reason;
    }
    for (const PluginRecord& record : context.plugins().records())
        if (record.fileName.find("AtracsysTracking") != std::string::npos)
            return "the Atracsys tracking plugin " + record.path + " could not be loaded: " + record.reason;
    std::string folders;
    for (const auto& folder : context.pluginFolders())
        folders += (folders.empty() ? "" : ", ") + folder;
    return "no Atracsys tracking plugin found in " + folders;
}

/// The lines of `errors` as an indented block, unless the console already showed them.
std::string reasons(const std::vector<LogRecord>& errors) {
    if (errors.empty() || Log::isAccepted(Log::Error, ""))
        return "";
    std::string text;
    for (const auto& record : errors)
        text += "  " + record.message + "\n";
    return text;
}

/// The error lines that explain why `path` did not load: those logged just before its
/// "Cannot load geometry from file" line.
std::vector<LogRecord> geometryReasons(const std::vector<LogRecord>& errors, const std::string& path) {
    std::vector<LogRecord> pending;
    for (const auto& record : errors) {
        if (record.message == "Cannot load geometry from file " + path) {
            pending.push_back(record);
            return pending;
        }
        if (record.message.rfind("Cannot load geometry from file ", 0) == 0)
            pending.clear();
        else
            pending.push_back(record);
    }
    return {};
}

bool hasMessage(const std::vector<LogRecord>& errors, const std::string& text) {
    for (const auto& record : errors)
        if (record.message.find(text) != std::string::npos)
            return true;
    return false;
}

/// Tells whether the recording was completed (the recorder's own lines, on the console, say why
/// not); false when it was not.
bool reportRecording(const std::string& file, std::ostream& out, std::ostream& err) {
    const QFileInfo info(QString::fromStdString(file));
    if (info.isFile() && !QFileInfo::exists(QString::fromStdString(file + ".part"))) {
        out << "Recorded the camera's frames to " << file << "\n";
        return true;
    }
    err << "kestrion track: the recording " << file << " was not completed\n";
    return false;
}

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

} // namespace

std::string TrackCommand::summary() const {
    return "live tracking: stream instrument poses from the camera, optionally to CSV";
}

std::string TrackCommand::help() const {
    return "Usage: kestrion track [OPTIONS]\n"
           "\n"
           "Opens the tracking camera through the Atracsys plugin, loads the marker geometries and\n"
           "shows, about once a second: the device (type and serial number), the frames received,\n"
           "the frames the device produced that never arrived (gaps in its frame counter), the\n"
           "frame rate, and for each instrument its id, name, position in mm and quality (\"-\"\n"
           "while it is not tracked), the time since it was last seen, and its status: tracked,\n"
           "or why not (fiducials missing, fiducials not at the geometry's distances, not in view,\n"
           "geometry refused by the camera; see docs/instrument-status.md).\n"
           "Runs until --duration or --frames is reached, or Ctrl-C; then\n"
           "stops and closes the camera and prints a summary.\n"
           "With no options it tracks the example markers (:/markers/geometry1000.ini and\n"
           ":/markers/geometry1001.ini) on the first camera found (the simulated one in a build\n"
           "against the simulator).\n"
           "\n"
           "Options:\n"
           "  --geometry FILE         marker geometry file (INI); repeat for several markers\n"
           "  --workspace FILE        take the stream settings and markers from the\n"
           "                          Atracsys.SpryTrackStream block of a workspace (.kws);\n"
           "                          --geometry files are added to its markers\n"
           "  --fiducials MODE        raw fiducials to fetch: none, marker (belonging to a marker),\n"
           "                          vicinity (near a marker) or all; default none, all with --images\n"
           "  --images DIR            fetch the camera images and save one left/right pair per\n"
           "                          second as PNG in DIR (created if needed), the detected\n"
           "                          fiducials marked: frame-<counter>-left.png, -right.png\n"
           "  --integration-time US   camera integration time in microseconds\n"
           "  --duration S            stop after S seconds\n"
           "  --frames N              stop after N frames\n"
           "  --csv FILE              record every frame: one row per instrument with the frame's\n"
           "                          host timestamps (arrival_ms, device_ms), the device counter\n"
           "                          and clock, tracked flag, quality, position (mm) and rotation\n"
           "                          (empty while not tracked), registration error (mm), status\n"
           "                          and its reason; written to FILE.part and renamed to FILE\n"
           "                          when complete\n"
           "  --record FILE           record everything the camera delivers, frame by frame (3D and\n"
           "                          2D fiducials, markers, statuses), with the camera's options\n"
           "                          and geometries, to FILE for replay (docs/recording-format.md);\n"
           "                          written to FILE.part and renamed to FILE when complete\n"
           "  --record-images         with --record: also record both camera images (lossless)\n"
           "  --sequence FILE         write the poses as a tracking sequence (MetaImage, .igs.mha)\n"
           "                          that 3D Slicer opens; via FILE.part like --csv\n"
           "  --force                 replace an existing --csv, --record or --sequence file, or the\n"
           "                          images of an earlier run in the --images folder; without it\n"
           "                          they are refused\n"
           "  --refresh S             seconds between table refreshes (default 1)\n"
           "  --igtl PORT             serve the poses over OpenIGTLink on TCP PORT (0: a free port,\n"
           "                          printed at start); the table lists the clients with the\n"
           "                          messages sent to each and dropped; see docs/openigtlink.md\n"
           "  --igtl-bind ADDRESS     address to serve on (default 127.0.0.1, this computer only).\n"
           "                          OpenIGTLink has no authentication: any other address lets\n"
           "                          everyone on that network read the poses; do not serve a\n"
           "                          hospital network this way\n"
           "  --ros2                  publish the poses to ROS 2 over DDS: /tf, /NAMESPACE/<tool>/pose,\n"
           "                          /NAMESPACE/fiducials and /diagnostics; the table shows the\n"
           "                          subscribers; see docs/ros2.md\n"
           "  --ros2-domain N         ROS 2 domain (0-232; default ROS_DOMAIN_ID, else 0)\n"
           "  --ros2-namespace NAME   namespace of the pose and fiducial topics (default atracsys)\n"
           "  --ros2-frame NAME       frame of the camera's measurements (default atracsys_camera)\n"
           "  --ros2-network IF       publish on network interface IF (name or address) instead of\n"
           "                          this computer only (the default, loopback). DDS has no\n"
           "                          authentication: anyone on that network reads the poses; do\n"
           "                          not publish on a hospital network this way\n"
           "  --poll-ms N             fetch a frame every N ms (1-1000) instead of every frame as\n"
           "                          the camera delivers it (0, the default)\n"
           "  --serial SN             use the camera with this serial number (0x... or decimal;\n"
           "                          see kestrion cameras); default: the last camera reported\n"
           "  --reconnect             when the camera stops delivering frames, show \"waiting for\n"
           "                          the camera\" and reopen it once a second; the recording goes\n"
           "                          on into the same CSV file when it is back; a --workspace\n"
           "                          whose block has \"reconnect\" set does the same\n"
           "\n"
           "Exit status: 0 success; 1 no plugin, unlicensed plugin, no camera, a geometry file that\n"
           "does not load or that the camera refuses, a camera lost while tracking, an output that\n"
           "exists (without --force) or is not writable, or a file that could not be written;\n"
           "2 bad arguments.\n";
}

int TrackCommand::run(CommandContext& context, const std::vector<std::string>& arguments) {
    const std::uint64_t startMs = Time::utcMilliseconds();
    const auto startTime = std::chrono::steady_clock::now();
    std::ostream& out = context.out();
    std::ostream& err = context.err();

    std::string error;
    const std::optional<TrackOptions> options = TrackOptions::parse(arguments, &error);
    if (!options) {
        err << "kestrion track: " << error << " (see kestrion track --help)\n";
        return 2;
    }
    if (!context.loadPlugins())
        return 1;
    if (!FactoryRegistry::instance().hasAlgorithm(TrackConfiguration::AlgorithmId)) {
        err << "kestrion track: " << pluginProblem(context) << "\n";
        return 1;
    }
    std::optional<TrackConfiguration> configuration = TrackConfiguration::build(*options, &error);
    if (!configuration) {
        err << "kestrion track: " << error << "\n";
        return 1;
    }

    // Outputs are checked before the camera opens, so that a bad path costs no connection.
    OutputPath csvOutput("CSV file", options->csvFile, OutputPath::Kind::File);
    OutputPath imagesOutput("image folder", options->imagesFolder, OutputPath::Kind::Folder);
    imagesOutput.setEarlierOutputs({"frame-*-left.png", "frame-*-right.png"});
    OutputPath recordOutput("recording file", options->recordFile, OutputPath::Kind::File);
    OutputPath sequenceOutput("sequence file", options->sequenceFile, OutputPath::Kind::File);
    for (OutputPath* output : {&csvOutput, &imagesOutput, &recordOutput, &sequenceOutput})
        if (!output->path().empty() && !output->check(options->force)) {
            err << "kestrion track: " << output->error() << "\n";
            return 1;
        }
    TrackCsvWriter csv;
    if (!options->csvFile.empty() &&
        !csv.open(options->csvFile, TrackTipColumns::anyTip(configuration->targets))) {
        err << "kestrion track: " << csv.error() << "\n";
        return 1;
    }
    TrackSequenceWriter sequence;
    if (!options->sequenceFile.empty() && !sequence.open(options->sequenceFile)) {
        csv.discard();
        err << "kestrion track: " << sequence.error() << "\n";
        return 1;
    }
    // Until tracking starts, a failure leaves no recording file and no new folder behind.
    struct DiscardUntilStarted {
        TrackCsvWriter& csv;
        TrackSequenceWriter& sequence;
        OutputPath& images;
        bool started = false;
        ~DiscardUntilStarted() {
            if (!started) {
                csv.discard();
                sequence.discard();
                images.removeIfUnused();
            }
        }
    } csvGuard{csv, sequence, imagesOutput};
    std::optional<TrackImageSaver> images;
    if (!options->imagesFolder.empty()) {
        images.emplace(options->imagesFolder, options->imageIntervalS);
        if (!imagesOutput.create()) {
            err << "kestrion track: " << imagesOutput.error() << "\n";
            return 1;
        }
    }

    // Create the stream, load the geometries and open the camera.
    std::unique_ptr<Algorithm> algorithm;
    std::vector<LogRecord> errors;
    {
        LogCollector collector;
        algorithm = FactoryRegistry::instance().createAlgorithm(TrackConfiguration::AlgorithmId);
        if (algorithm) {
            algorithm->configure(&configuration->properties);
            algorithm->compute();
        }
        errors = collector.errors();
    }
    auto* streamAlgorithm = dynamic_cast<StreamAlgorithm*>(algorithm.get());
    auto* stream = streamAlgorithm ? dynamic_cast<TrackingStream*>(streamAlgorithm->outputStream()) : nullptr;
    if (!stream) {
        err << "kestrion track: the tracking stream could not be created\n" << reasons(errors);
        return 1;
    }
    if (algorithm->status() != Algorithm::Success || stream->currentState() != Stream::State::Open) {
        if (hasMessage(errors, "device connected"))
            err << "kestrion track: no camera found\n";
        else
            err << "kestrion track: the camera could not be opened\n" << reasons(errors);
        return 1;
    }
    auto* cameras = dynamic_cast<CameraSelection*>(stream);
    if (cameras && !options->serialNumber)
        out << cameraChoiceNote(*cameras);
    const std::vector<TrackingInstrument> instruments = stream->instruments();
    for (const auto& target : configuration->targets) {
        bool loaded = false;
        for (const auto& instrument : instruments)
            loaded = loaded || instrument.id.name == target.name;
        if (!loaded) {
            const std::vector<LogRecord> why = geometryReasons(errors, target.path);
            err << "kestrion track: geometry file " << target.path << " could not be loaded";
            if (why.size() > 1) // the last line only repeats that it could not be loaded
                err << ": " << why.front().message;
            else if (why.empty()) // loaded, but not added: the stream says why, naming the file
                for (const auto& record : errors)
                    if (record.message.find(target.path + ":") != std::string::npos) {
                        err << ": " << record.message;
                        break;
                    }
            err << "\n";
            return 1;
        }
    }

    TrackIgtl igtl;
    if (!igtl.start(*options, *stream, out, &error)) {
        err << "kestrion track: " << error << "\n";
        return 1;
    }

    TrackRos2 ros2;
    if (!ros2.start(*options, *stream, out, &error)) {
        err << "kestrion track: " << error << "\n";
        return 1;
    }

    // The table and the CSV say why an instrument is not tracked.
    stream->requestInstrumentStatus();

    // Listen to the frames, then start tracking.
    // Runs on the stream's worker thread (signals are synchronous), so its state needs no lock.
    // Only the frames whose images will be saved keep them in the queue: the others pass their
    // tracking data alone, so that the camera images (2 x 2.2 MB a frame) are released at once
    // and do not pile up while this thread encodes a PNG pair.
    TrackFrameQueue queue;
    const auto fetchFailures = std::make_shared<FetchFailureWatch>();
    Log::addSink(fetchFailures);
    const bool keepImages = images.has_value();
    const auto imageIntervalMs = static_cast<std::uint64_t>(std::llround(options->imageIntervalS * 1000.0));
    SignalConnection connection = stream->signalStreamData.connect(
        [&queue, &fetchFailures, keepImages, imageIntervalMs,
         nextImageMs = std::uint64_t(0)](const std::shared_ptr<const StreamData>& data) mutable {
            fetchFailures->frameDelivered();
            const auto* compound = dynamic_cast<const CompoundStreamData*>(data.get());
            if (!compound) {
                queue.push(data);
            } else if (keepImages && compound->arrivalTimestamp() >= nextImageMs) {
                nextImageMs = compound->arrivalTimestamp() + imageIntervalMs;
                queue.push(data);
            } else {
                queue.push(compound->mainData());
            }
        });
    StopSignals stopSignals;
    bool started = false;
    {
        LogCollector collector; // the start puts the geometries on the camera and logs refusals
        started = stream->start();
        errors = collector.errors();
    }
    // A geometry the camera refused would never be tracked.
    std::string refused;
    for (const auto& target : configuration->targets)
        if (refused.empty() &&
            hasMessage(errors, "Cannot set geometry loaded from " + target.path + " to tracking system"))
            refused = target.path;
    if (!started || !refused.empty()) {
        connection.disconnect();
        Log::removeSink(fetchFailures);
        stream->close();
        if (started)
            err << "kestrion track: the camera refused the geometry of " << refused << "\n";
        else
            err << "kestrion track: tracking could not be started\n";
        return 1;
    }
    csvGuard.started = true;
    if (options->integrationTimeUS) {
        // The start applies it; the camera may refuse or clamp it. While open, the stream's
        // configuration holds the camera's own value.
        Properties live;
        if (const auto* configurable = dynamic_cast<const Configurable*>(stream))
            configurable->configuration(&live);
        const int used = live.param("imageIntegrationTime", -1);
        if (used != *options->integrationTimeUS)
            err << "kestrion track: the camera did not take the integration time of "
                << *options->integrationTimeUS << " us; it uses "
                << (used > 0 ? std::to_string(used) + " us" : std::string("an unknown value")) << "\n";
    }
    out << "Tracking " << instruments.size() << " instrument(s); Ctrl-C ends.\n" << std::flush;
    std::optional<StreamReconnector> reconnector;
    std::uint64_t reopenings = 0;
    if (configuration->reconnect) // --reconnect, or the workspace's "reconnect"
        reconnector.emplace(*stream).arm();

    const bool tty = &out == &std::cout && ::isatty(STDOUT_FILENO);
    TrackStatistics statistics;
    std::vector<std::shared_ptr<const StreamData>> batch;
    batch.reserve(256);
    std::optional<std::uint64_t> firstPoseMs;
    std::uint64_t framesAtRefresh = 0;
    auto lastRefresh = startTime;
    std::size_t tableLines = 0;
    bool failed = false;
    bool cameraLost = false;
    bool done = false;
    double rateHz = 0.0;

    auto showTable = [&](std::chrono::steady_clock::time_point now) {
        const double window = std::chrono::duration<double>(now - lastRefresh).count();
        if (window > 0.0)
            rateHz = static_cast<double>(statistics.framesReceived() - framesAtRefresh) / window;
        framesAtRefresh = statistics.framesReceived();
        lastRefresh = now;
        std::string table = statistics.table(Time::utcMilliseconds(),
                                             std::chrono::duration<double>(now - startTime).count(), rateHz);
        if (reconnector && reconnector->state() == StreamReconnector::State::Waiting)
            table += "State: waiting for the camera\n";
        table += igtl.table();
        table += ros2.table();
        if (tty && tableLines > 0)
            out << "\033[" << tableLines << "F\033[J"; // redraw in place
        out << table << (tty ? "" : "\n") << std::flush;
        tableLines = static_cast<std::size_t>(std::count(table.begin(), table.end(), '\n'));
    };

    while (!done) {
        batch.clear();
        // The frames queued meanwhile, about 50 times a second.
        queue.takeAll(batch, std::chrono::milliseconds(20));
        for (const auto& item : batch) {
            if (options->frames && statistics.framesReceived() >= *options->frames)
                break;
            const auto* compound = dynamic_cast<const CompoundStreamData*>(item.get());
            const auto* frame =
                dynamic_cast<const TrackingStreamData*>(compound ? compound->mainData().get() : item.get());
            if (!frame)
                continue;
            const DeviceFrameInfo* device = frame->component<DeviceFrameInfo>();
            // A reopened camera counts its frames anew. Its first frames can arrive before the
            // reopening is reported done, so the count of reopenings begun is what tells.
            if (reconnector && reconnector->reopenings() != reopenings) {
                reopenings = reconnector->reopenings();
                statistics.forgetFrameCounter();
            }
            const std::uint64_t index = statistics.framesReceived();
            statistics.add(*frame, device);
            if (!firstPoseMs && statistics.framesWithPose() > 0)
                firstPoseMs = frame->arrivalTimestamp() > startMs ? frame->arrivalTimestamp() - startMs : 0;
            if (csv.isOpen() && !csv.failed() && !csv.write(index, *frame, device)) {
                err << "kestrion track: " << csv.error() << "; recording stopped, " << csv.partialFile()
                    << " holds the rows written so far\n";
                failed = true;
            }
            if (sequence.isOpen() && !sequence.failed() && !sequence.write(index, *frame, device)) {
                err << "kestrion track: " << sequence.error() << "; no more frames are written to it\n";
                failed = true;
            }
            if (images && compound && !images->failed() && !images->offer(*compound, index)) {
                err << "kestrion track: " << images->error() << "; no more images are saved\n";
                failed = true;
            }
        }
        const auto now = std::chrono::steady_clock::now();
        const double elapsed = std::chrono::duration<double>(now - startTime).count();
        if (options->frames && statistics.framesReceived() >= *options->frames)
            done = true;
        if (options->durationS && elapsed >= *options->durationS)
            done = true;
        if (StopSignals::received() != 0)
            done = true;
        if (!reconnector && !stream->isStateOneOf({Stream::State::Running})) {
            cameraLost = true;
            done = true;
        }
        if (done || now - lastRefresh >= std::chrono::duration<double>(options->refreshS))
            showTable(now);
    }

    // Stop listening first (the queue goes with this scope), then stop and close the camera.
    reconnector.reset();
    connection.disconnect();
    const double elapsedS =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - startTime).count();
    const bool closed = stream->close();
    stream->releaseInstrumentStatus();
    igtl.stop();
    ros2.stop();
    algorithm.reset(); // the recorder finishes its file when the stream goes
    Log::removeSink(fetchFailures);
    if (!closed) {
        err << "kestrion track: the camera could not be closed properly\n";
        failed = true;
    }
    if (cameraLost) {
        err << "kestrion track: the camera stopped delivering frames (stream no longer running)\n";
        failed = true;
    } else if (fetchFailures->cameraStopped()) {
        err << "kestrion track: the camera stopped delivering frames (failed fetches since the last frame)\n";
        failed = true;
    }
    if (csv.isOpen() && !csv.close()) {
        err << "kestrion track: " << csv.error() << "; " << csv.partialFile()
            << " holds the rows written so far\n";
        failed = true;
    }

    out << "Summary: " << statistics.framesReceived() << " frames received, " << statistics.framesDropped()
        << " dropped, in " << formatSeconds(elapsedS) << " s";
    if (firstPoseMs)
        out << "; first pose after " << *firstPoseMs << " ms";
    else
        out << "; no instrument was tracked";
    if (StopSignals::received() != 0)
        out << "; ended by signal " << StopSignals::received();
    out << "\n";
    out << ros2.summary();
    if (!options->csvFile.empty() && !csv.failed())
        out << "Recorded " << csv.rowsWritten() << " rows to " << options->csvFile << "\n";
    if (sequence.isOpen() && !sequence.close())
        err << "kestrion track: " << sequence.error() << "; " << sequence.partialFile()
            << " holds the frames written so far\n";
    else if (!options->sequenceFile.empty() && !sequence.failed())
        out << "Wrote " << sequence.framesWritten() << " frames to " << options->sequenceFile << "\n";
    failed = sequence.failed() || failed;
    if (!options->recordFile.empty() && !reportRecording(options->recordFile, out, err))
        failed = true;
    if (images)
        out << "Saved " << images->pairsSaved() << " image pair(s) to " << options->imagesFolder << "\n";
    if (statistics.framesReceived() == 0 && StopSignals::received() == 0) {
        err << "kestrion track: no frame was received from the camera\n";
        failed = true;
    }
    return failed ? 1 : 0;
}

} // namespace Kestrion::Cli
