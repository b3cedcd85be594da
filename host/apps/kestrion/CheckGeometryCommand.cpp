#include "host/apps/kestrion/CheckGeometryCommand.h"

#include "host/apps/kestrion/CameraStream.h"
#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/LogCollector.h"
#include "host/apps/kestrion/TrackConfiguration.h"
#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/lib/FactoryRegistry.h"
#include "host/stream/TrackingStream.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <ostream>

namespace Kestrion::Cli {

namespace {

/// The plugin logs its ambiguity findings under this category (one warning per finding).
const char* const AmbiguityCategory = "AtracsysAmbiguityCheck";

/// The settings of a closed stream whose markers are the files.
Properties checkSettings(const std::vector<std::string>& paths, double tolerance) {
    Properties settings;
    for (const char* key : {"open", "autoOpen", "connect", "start", "autoStart"})
        settings.setParam(key, false);
    settings.setParam("Distance matching tolerance", static_cast<float>(tolerance));
    Properties* targets = settings.addSubProperties("TrackingTargets");
    for (std::size_t i = 0; i < paths.size(); ++i)
        targets->addSubProperties("file" + std::to_string(i))->setParam("Path", paths[i]);
    return settings;
}

} // namespace

std::string CheckGeometryCommand::summary() const {
    return "check marker geometry files for markers the camera could confuse";
}

std::string CheckGeometryCommand::help() const {
    return "Usage: kestrion check-geometry [--tolerance MM] FILE...\n"
           "\n"
           "Loads the marker geometry files (INI) as the tracking plugin does, without opening the\n"
           "camera, and compares each with itself and with the others by the distances between\n"
           "their fiducials, as the camera tells markers apart. Prints one line per finding:\n"
           "  - two geometries could be confused: three fiducials of one lie at the distances of\n"
           "    three of the other within the tolerance;\n"
           "  - one geometry is the mirror image of another;\n"
           "  - a geometry is symmetric, so that its pose could flip;\n"
           "  - two fiducials of a geometry are closer than a fiducial's diameter (11.5 mm).\n"
           "Each line names the files and the closest distance pair. See docs/geometry-checks.md.\n"
           "\n"
           "Options:\n"
           "  --tolerance MM   the camera's \"Distance matching tolerance\" (default 1.0)\n"
           "\n"
           "Exit status: 0 nothing found; 1 a finding, a file that does not load or whose geometry\n"
           "id another file has already, or no plugin; 2 bad arguments.\n";
}

int CheckGeometryCommand::run(CommandContext& context, const std::vector<std::string>& arguments) {
    std::ostream& out = context.out();
    std::ostream& err = context.err();
    std::vector<std::string> files;
    double tolerance = 1.0;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--tolerance") {
            char* end = nullptr;
            const std::string value = i + 1 < arguments.size() ? arguments[++i] : std::string();
            tolerance = std::strtod(value.c_str(), &end);
            if (value.empty() || *end != '\0' || !std::isfinite(tolerance) || tolerance <= 0.0) {
                err << "kestrion check-geometry: --tolerance takes a positive number of millimetres, not '"
                    << value << "' (see kestrion check-geometry --help)\n";
                return 2;
            }
        } else if (argument.rfind("--", 0) == 0) {
            err << "kestrion check-geometry: unknown option '" << argument
                << "' (see kestrion check-geometry --help)\n";
            return 2;
        } else {
            files.push_back(argument);
        }
    }
    if (files.empty()) {
        err << "kestrion check-geometry: no geometry file given (see kestrion check-geometry --help)\n";
        return 2;
    }
    if (!context.loadPlugins())
        return 1;
    if (!FactoryRegistry::instance().hasAlgorithm(TrackConfiguration::AlgorithmId)) {
        err << "kestrion check-geometry: the Atracsys tracking plugin is not available (see kestrion "
               "plugins)\n";
        return 1;
    }

    // The stream is created closed; each file becomes one of its markers, named after its place
    // in the list, and adding it makes the plugin compare it with the markers before it.
    std::vector<std::string> paths;
    for (const std::string& file : files)
        paths.push_back(file.rfind(":/", 0) == 0 ? file : std::filesystem::absolute(file).string());
    std::vector<LogRecord> records;
    std::vector<std::optional<std::string>> ids(files.size()); // the instrument id of each file loaded
    std::map<std::string, std::size_t> holders;                // instrument id -> the file that has it
    {
        LogCollector log(LogCollector::Console::Quiet); // the command prints what it found itself
        CameraStream checked(checkSettings(paths, tolerance));
        if (checked.stream())
            for (const TrackingInstrument& instrument : checked.stream()->instruments())
                for (std::size_t i = 0; i < files.size(); ++i)
                    if (instrument.id.name == "file" + std::to_string(i)) {
                        ids[i] = instrument.ID();
                        holders.emplace(instrument.ID(), i);
                    }
        records = log.records();
    }
    // A file that loads alone but not among the others has a geometry id that an earlier file
    // has: the only refusal that comes from the other files.
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (ids[i])
            continue;
        LogCollector quiet(LogCollector::Console::Quiet); // said already, or said below
        CameraStream alone(checkSettings({paths[i]}, tolerance));
        if (alone.stream() && alone.stream()->instruments().size() == 1)
            ids[i] = alone.stream()->instruments().front().ID();
    }

    // The plugin names the files by their absolute paths; the user reads the names given.
    auto asGiven = [&files, &paths](std::string text) {
        for (std::size_t i = 0; i < files.size(); ++i)
            for (std::size_t at = text.find(paths[i]); at != std::string::npos;
                 at = text.find(paths[i], at + files[i].size()))
                text.replace(at, paths[i].size(), files[i]);
        return text;
    };
    int findings = 0;
    for (const LogRecord& record : records)
        if (record.category == AmbiguityCategory && record.level == Log::Warning) {
            out << asGiven(record.message) << "\n";
            ++findings;
        }
    int problems = 0;
    std::vector<LogRecord> errors;
    for (const LogRecord& record : records)
        if (record.level >= Log::Error)
            errors.push_back(record);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto holder = ids[i] ? holders.find(*ids[i]) : holders.end();
        if (holder != holders.end() && holder->second == i)
            continue; // loaded
        ++problems;
        if (holder != holders.end()) {
            err << "kestrion check-geometry: create: Instrument with ID " << *ids[i]
                << " already exists: two of the files have the same geometry id, so the camera would hold "
                   "only the first\n";
            continue;
        }
        const std::string reason = geometryLoadReason(errors, paths[i]);
        err << "kestrion check-geometry: geometry file " << files[i] << " could not be loaded"
            << (reason.empty() ? "" : ": " + asGiven(reason)) << "\n";
    }
    if (findings == 0 && problems == 0) {
        char text[64];
        std::snprintf(text, sizeof text, "%.2f mm", tolerance);
        out << "No ambiguity found in " << files.size() << " geometry file(s) (Distance matching tolerance "
            << text << ")\n";
    }
    return findings + problems > 0 ? 1 : 0;
}

} // namespace Kestrion::Cli
