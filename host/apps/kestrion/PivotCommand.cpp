#include "host/apps/kestrion/PivotCommand.h"

#include "host/apps/kestrion/CameraStream.h"
#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/LogCollector.h"
#include "host/apps/kestrion/PivotOptions.h"
#include "host/apps/kestrion/StopSignals.h"
#include "host/apps/kestrion/TrackConfiguration.h"

#include "host/calibration/PivotCalibration.h"
#include "host/calibration/PivotRecording.h"
#include "host/calibration/ToolTipFileFormats.h"
#include "host/core/Log.h"
#include "host/lib/FactoryRegistry.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"

#include <chrono>
#include <iomanip>
#include <iostream>
#include <optional>
#include <ostream>
#include <thread>
#include <unistd.h>

namespace Kestrion::Cli {

namespace {

std::string point(const Eigen::Vector3d& p) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << p.x() << " " << p.y() << " " << p.z() << " mm";
    return text.str();
}

} // namespace

std::string PivotCommand::summary() const {
    return "pivot calibration: find a tool's tip while it is pivoted about it, optionally save it";
}

std::string PivotCommand::help() const {
    return "Usage: kestrion pivot --geometry FILE [--frames N] [--save]\n"
           "\n"
           "Finds the tip of a tracked tool. Rest the tip in a divot (a small dent that holds it)\n"
           "and tilt the tool around it in every direction, at least 20 degrees from one side to\n"
           "the other, while the camera sees the marker. The command records the marker's poses\n"
           "(frames where the tool is tracked with all its fiducials), shows the progress, and\n"
           "solves for the point that stayed still: the tip in the marker's frame and the pivot\n"
           "point in the camera's frame, with the RMS residual, the frames used and rejected and\n"
           "the angular spread. Ctrl-C ends the recording early and solves with what it holds.\n"
           "A recording that cannot give a tip (too few frames, the tool never moved, moved\n"
           "without a fixed tip, or tilted too little) is refused with the reason.\n"
           "\n"
           "Options:\n"
           "  --geometry FILE   the tool's marker geometry file (INI)\n"
           "  --frames N        frames to record (default 500)\n"
           "  --save            write the tip into FILE as its [pivot] section (through a\n"
           "                    temporary file renamed over it; the other lines are kept)\n"
           "\n"
           "Exit status: 0 a tip was found (and saved with --save); 1 no plugin, no camera, a\n"
           "geometry file that does not load, a camera lost while recording, a refused recording\n"
           "or a file that could not be written (the file is then unchanged); 2 bad arguments.\n";
}

int PivotCommand::run(CommandContext& context, const std::vector<std::string>& arguments) {
    std::ostream& out = context.out();
    std::ostream& err = context.err();
    std::string error;
    const std::optional<PivotOptions> options = PivotOptions::parse(arguments, &error);
    if (!options) {
        err << "kestrion pivot: " << error << " (see kestrion pivot --help)\n";
        return 2;
    }
    if (!context.loadPlugins())
        return 1;
    if (!FactoryRegistry::instance().hasAlgorithm(TrackConfiguration::AlgorithmId)) {
        err << "kestrion pivot: the Atracsys tracking plugin is not available (see kestrion plugins)\n";
        return 1;
    }

    // The fiducial count of the geometry decides which frames are complete. The plugin that owns
    // the geometry format reads it (and later writes the tip).
    const std::shared_ptr<const ToolTipFileFormat> format =
        ToolTipFileFormats::instance().formatOf(options->geometry);
    if (!format) {
        err << "kestrion pivot: no loaded plugin reads tool tips from " << options->geometry << "\n";
        return 1;
    }
    const std::optional<ToolTipFileFormat::Facts> facts = format->read(options->geometry, error);
    if (!facts) {
        err << "kestrion pivot: " << error << "\n";
        return 1;
    }
    const std::optional<unsigned> fiducials = facts->fiducials;
    if (!fiducials || *fiducials == 0) {
        err << "kestrion pivot: " << options->geometry
            << " is not a marker geometry file (no fiducial count in a [geometry] section)\n";
        return 1;
    }

    TrackOptions track;
    track.geometries = {options->geometry};
    track.fiducialMode = 1; // the fiducials of the markers tell whether the tool is seen whole
    std::optional<TrackConfiguration> configuration = TrackConfiguration::build(track, &error);
    if (!configuration) {
        err << "kestrion pivot: " << error << "\n";
        return 1;
    }
    std::optional<LogCollector> errors(std::in_place); // why the camera or the file did not open
    CameraStream camera(configuration->properties);
    TrackingStream* stream = camera.stream();
    if (camera.outcome() != CameraStream::Outcome::Opened) {
        err << "kestrion pivot: the camera could not be opened\n" << errors->errorText();
        return 1;
    }
    if (stream->instruments().size() != 1) {
        err << "kestrion pivot: geometry file " << options->geometry << " could not be loaded\n"
            << errors->errorText();
        return 1;
    }
    errors.reset();
    const TrackingInstrument tool = stream->instruments().front();

    // Runs on the stream's worker thread: the recording copies one pose and returns.
    PivotRecording recording(tool.ID(), *fiducials, options->frames);
    SignalConnection connection =
        stream->signalStreamData.connect([&recording](const std::shared_ptr<const StreamData>& data) {
            const auto* compound = dynamic_cast<const CompoundStreamData*>(data.get());
            const auto* frame =
                dynamic_cast<const TrackingStreamData*>(compound ? compound->mainData().get() : data.get());
            if (frame)
                recording.add(*frame);
        });
    StopSignals stopSignals; // Ctrl-C ends the recording early
    recording.start();
    if (!stream->start()) {
        connection.disconnect();
        stream->close();
        err << "kestrion pivot: tracking could not be started\n";
        return 1;
    }
    out << "Recording " << options->frames << " frames of " << tool.ID() << " (" << options->geometry
        << "): pivot the tool about its tip; Ctrl-C ends early.\n"
        << std::flush;

    const bool tty = &out == &std::cout && ::isatty(STDOUT_FILENO);
    bool cameraLost = false;
    std::size_t shown = 0;
    auto lastShown = std::chrono::steady_clock::now();
    while (recording.isRecording()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (StopSignals::received() != 0)
            recording.stop();
        if (!stream->isStateOneOf({Stream::State::Running})) {
            cameraLost = true;
            recording.stop();
        }
        const auto now = std::chrono::steady_clock::now();
        const std::size_t accepted = recording.acceptedFrames();
        if (accepted != shown &&
            (tty || now - lastShown >= std::chrono::seconds(1) || !recording.isRecording())) {
            out << (tty ? "\r" : "") << "Recorded " << accepted << "/" << options->frames << " frames"
                << (tty ? "" : "\n") << std::flush;
            shown = accepted;
            lastShown = now;
        }
    }
    if (tty)
        out << "\n";
    connection.disconnect();
    stream->close();
    camera.release();
    if (cameraLost) {
        err << "kestrion pivot: the camera stopped delivering frames; nothing was solved\n";
        return 1;
    }

    const std::size_t skipped = recording.notTrackedFrames() + recording.incompleteFrames();
    const auto result = PivotCalibration().solve(recording.poses());
    if (!result.solved()) {
        err << "kestrion pivot: no tip found: " << result.refusal << "\n";
        if (skipped > 0)
            err << "  (" << recording.notTrackedFrames() << " frames without the tool tracked and "
                << recording.incompleteFrames() << " with fiducials missing were skipped)\n";
        return 1;
    }
    out << "Tip in the marker's frame:  " << point(result.tipInMarker) << "\n"
        << "Pivot point (camera frame): " << point(result.pivotInCamera) << "\n"
        << "RMS residual:               " << std::fixed << std::setprecision(3) << result.rmsMM << " mm\n"
        << "Frames:                     " << result.usedFrames << " used, " << result.rejectedFrames
        << " rejected, " << skipped << " skipped (tool not tracked or fiducials missing)\n"
        << "Angular spread:             " << std::setprecision(1) << result.spreadDeg << " degrees\n";
    if (options->save) {
        if (!format->saveTip(options->geometry, result.tipInMarker, error)) {
            err << "kestrion pivot: the tip was not saved: " << error << "\n";
            return 1;
        }
        out << "Tip saved to " << options->geometry << "\n";
    }
    return 0;
}

} // namespace Kestrion::Cli
