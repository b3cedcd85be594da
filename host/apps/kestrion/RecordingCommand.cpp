#include "host/apps/kestrion/RecordingCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/stream/connection/CameraSelection.h"
#include "recording/RecordingReader.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <ostream>

namespace Kestrion::Cli {

namespace {

std::string utcText(std::uint64_t microseconds) {
    const std::time_t seconds = static_cast<std::time_t>(microseconds / 1000000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

std::string geometryLine(const Recording::Geometry& g) {
    char line[64];
    std::snprintf(line, sizeof line, "  %-6u %2zu fiducials  ", g.id, g.pointsMM.size());
    return line + (g.path.empty() ? std::string("(no file)") : g.path);
}

std::string optionValue(const Recording::OptionValue& o) {
    if (!o.readable)
        return "(not readable)";
    if (o.type == Recording::OptionValue::Type::Float32) {
        char number[32];
        std::snprintf(number, sizeof number, "%g", static_cast<double>(o.floatValue));
        return number;
    }
    return o.type == Recording::OptionValue::Type::Data ? "\"" + o.data + "\"" : std::to_string(o.intValue);
}

} // namespace

std::string RecordingCommand::summary() const {
    return "describe a session recording: camera, frames, geometries, options";
}

std::string RecordingCommand::help() const {
    return "Usage: kestrion recording FILE\n"
           "\n"
           "Describes a recording made by `kestrion track --record` (or its .part file) without\n"
           "replaying it: the camera's type and serial number, when the recording began, whether\n"
           "it holds the camera images, its frames (with the first and last frame counter and the\n"
           "device time they span) and the frames the recorder dropped, the marker geometries\n"
           "registered at its start and during it with the files they came from, and the\n"
           "camera's option values. Every record's checksum is checked; docs/recording-format.md\n"
           "describes the file.\n"
           "\n"
           "Exit status: 0 a readable recording (also one cut short); 1 a file that is missing,\n"
           "not a recording, too new or damaged; 2 bad arguments.\n";
}

int RecordingCommand::run(CommandContext& context, const std::vector<std::string>& arguments) {
    std::ostream& out = context.out();
    std::ostream& err = context.err();
    if (arguments.size() != 1 || arguments.front().rfind("-", 0) == 0) {
        err << "kestrion recording: "
            << (arguments.empty() ? std::string("a recording file is needed")
                                  : "unexpected argument '" + arguments.back() + "'")
            << " (see kestrion recording --help)\n";
        return 2;
    }
    Recording::RecordingReader reader;
    if (!reader.open(arguments.front())) {
        err << "kestrion recording: " << reader.error() << "\n";
        return 1;
    }
    // The frames are read for their counters and times; the images stay compressed.
    Recording::Frame frame;
    std::uint64_t frames = 0;
    std::uint64_t firstUS = 0, lastUS = 0;
    std::uint32_t firstCounter = 0, lastCounter = 0;
    Recording::RecordingReader::Next next;
    while ((next = reader.next(frame, false)) == Recording::RecordingReader::Next::Frame) {
        (frames == 0 ? firstUS : lastUS) = frame.header.timestampUS;
        (frames == 0 ? firstCounter : lastCounter) = frame.header.counter;
        ++frames;
    }
    if (next == Recording::RecordingReader::Next::Failed) {
        err << "kestrion recording: " << reader.error() << "\n";
        return 1;
    }
    const Recording::SessionHeader& h = reader.header();
    out << "Recording: " << arguments.front() << " (format version " << reader.version() << ")\n"
        << "Camera: " << h.deviceName << ", serial " << CameraSelection::serialText(h.serialNumber) << "\n"
        << "Began: " << utcText(h.startedUS) << "\n"
        << "Images: " << (h.withImages ? "recorded" : "not recorded") << "\n"
        << "Frames: " << frames;
    if (frames > 1) {
        const double seconds = static_cast<double>(lastUS - firstUS) / 1e6;
        char span[96];
        std::snprintf(span, sizeof span, ", counters %u to %u, %.1f s of device time", firstCounter,
                      lastCounter, seconds);
        out << span;
    }
    out << "; " << reader.framesDropped() << " dropped by the recorder\n";
    if (reader.cutShort())
        out << "Cut short: the recording was cut off (the process killed or its disk full); the frames"
               " above are its whole ones"
            << (reader.error().empty() ? "" : " (" + reader.error() + ")") << "\n";
    for (const Recording::Gap& gap : reader.gaps()) {
        char line[128];
        std::snprintf(line, sizeof line,
                      "Camera lost and reopened before frame %llu: %.1f s without frames\n",
                      static_cast<unsigned long long>(gap.beforeFrame),
                      static_cast<double>(gap.resumedUS - std::min(gap.resumedUS, gap.interruptedUS)) / 1e6);
        out << line;
    }
    out << "Geometries at the start: " << h.geometries.size() << "\n";
    for (const Recording::Geometry& g : h.geometries)
        out << geometryLine(g) << "\n";
    if (!reader.geometriesAdded().empty()) {
        out << "Geometries registered during the recording: " << reader.geometriesAdded().size() << "\n";
        for (const Recording::AddedGeometry& added : reader.geometriesAdded())
            out << geometryLine(added.geometry) << "  (before frame " << added.beforeFrame << ")\n";
    }
    out << "Options: " << h.options.size() << "\n";
    for (const Recording::OptionValue& o : h.options)
        out << "  " << o.id << " " << o.name << " = " << optionValue(o) << "\n";
    return 0;
}

} // namespace Kestrion::Cli
