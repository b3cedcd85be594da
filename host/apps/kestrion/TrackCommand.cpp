#include "host/apps/kestrion/TrackCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/TrackConfiguration.h"
#include "host/apps/kestrion/TrackOptions.h"
#include "host/apps/kestrion/TrackSession.h"
#include "host/lib/FactoryRegistry.h"
#include "host/licensing/LicenseService.h"

#include <optional>
#include <ostream>

namespace Kestrion::Cli {

namespace {

const char* const PluginId = "Kestrion.AtracsysTrackingSpryTrack";

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
           "geometry refused by the camera; see docs/instrument-status.md). While the camera\n"
           "delivers no frame (0.5 s, or ten frame periods if longer) it says \"Camera: not\n"
           "delivering\" with the time since the last frame, and shows no instrument as tracked.\n"
           "Runs until --duration or --frames is reached, or Ctrl-C; then\n"
           "stops and closes the camera and prints a summary, with the times the camera stopped\n"
           "delivering and for how long in all.\n"
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
           "                          times, the tracked flag, quality, position (mm) and rotation\n"
           "                          (empty while not tracked), registration error (mm), status\n"
           "                          and its reason; written to FILE.part (handed to the system at\n"
           "                          least once a second) and renamed to FILE when complete.\n"
           "                          The time columns: frame, the frame's number in this run;\n"
           "                          device_counter, the camera's frame counter; arrival_ms, when\n"
           "                          the host received the frame (ms since 1970, UTC); device_ms,\n"
           "                          the frame's timestamp as the stream gives it (ms since 1970);\n"
           "                          device_time_us, the camera's own clock (us); capture_us, when\n"
           "                          the camera captured the frame, on the host's clock (us since\n"
           "                          1970, UTC; free of the delivery delay; the arrival time when\n"
           "                          the camera gives none): use it to synchronise with other data\n"
           "  --record FILE           record everything the camera delivers, frame by frame (3D and\n"
           "                          2D fiducials, markers, statuses), with the camera's options\n"
           "                          and geometries, to FILE for replay (docs/recording-format.md);\n"
           "                          written to FILE.part and renamed to FILE when complete\n"
           "  --record-images         with --record: also record both camera images (lossless)\n"
           "  --sequence FILE         write the poses as a tracking sequence (MetaImage, .igs.mha)\n"
           "                          that 3D Slicer opens (with the SlicerIGSIO extension; see\n"
           "                          docs/recording-format.md), timestamps from capture_us; via\n"
           "                          FILE.part like --csv\n"
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
           "  --name ID=NAME          name an instrument (letters and digits, beginning with an\n"
           "                          upper-case letter: --name atracsys-1000=Stylus); repeatable.\n"
           "                          Outputs build transform names from it (StylusToReference)\n"
           "  --reference ID          give every other instrument, and its tip, also in the frame of\n"
           "                          instrument ID (a reference marker on the patient or phantom):\n"
           "                          the table's \"In reference\" column, the CSV's ref_* columns\n"
           "                          and <Name>To<RefName> transforms, valid only in frames where\n"
           "                          both are tracked; see docs/reference-frames.md\n"
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
    const std::optional<TrackConfiguration> configuration = TrackConfiguration::build(*options, &error);
    if (!configuration) {
        err << "kestrion track: " << error << "\n";
        return 1;
    }
    TrackSession session(context, *options, *configuration);
    return session.run();
}

} // namespace Kestrion::Cli
