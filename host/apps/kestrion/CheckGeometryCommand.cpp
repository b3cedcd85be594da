#include "host/apps/kestrion/CheckGeometryCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/TrackConfiguration.h"
#include "host/core/CaptureLogSink.h"
#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/lib/FactoryRegistry.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <ostream>

namespace Kestrion::Cli {

namespace {

/// The plugin logs its ambiguity findings under this category (one warning per finding).
const char* const AmbiguityCategory = "AtracsysAmbiguityCheck";
const char* const CannotLoad = "Cannot load geometry from file ";

/// Keeps the console quiet and collects the warnings and errors while it lives: the command
/// prints them itself, each once.
class QuietCollector {
public:
    QuietCollector()
        : m_sink(std::make_shared<CaptureLogSink>()) {
        Log::addSink(m_sink);
        Log::setConsoleEnabled(false);
    }
    ~QuietCollector() {
        Log::setConsoleEnabled(true);
        Log::removeSink(m_sink);
    }
    QuietCollector(const QuietCollector&) = delete;
    QuietCollector& operator=(const QuietCollector&) = delete;

    std::vector<LogRecord> records() const { return m_sink->records(); }

private:
    std::shared_ptr<CaptureLogSink> m_sink;
};

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

    // The stream is created closed; each file becomes one of its markers, and adding it makes
    // the plugin compare it with the markers before it.
    Properties settings;
    for (const char* key : {"open", "autoOpen", "connect", "start", "autoStart"})
        settings.setParam(key, false);
    settings.setParam("Distance matching tolerance", static_cast<float>(tolerance));
    Properties* targets = settings.addSubProperties("TrackingTargets");
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < files.size(); ++i) {
        paths.push_back(files[i].rfind(":/", 0) == 0 ? files[i]
                                                     : std::filesystem::absolute(files[i]).string());
        targets->addSubProperties("file" + std::to_string(i))->setParam("Path", paths.back());
    }
    std::vector<LogRecord> records;
    {
        QuietCollector collector;
        std::unique_ptr<Algorithm> algorithm =
            FactoryRegistry::instance().createAlgorithm(TrackConfiguration::AlgorithmId);
        if (algorithm) {
            algorithm->configure(&settings);
            algorithm->compute();
        }
        records = collector.records();
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
    int problems = 0;
    std::vector<std::string> reasons; // errors since the last file's result
    for (const LogRecord& record : records) {
        if (record.category == AmbiguityCategory && record.level == Log::Warning) {
            out << asGiven(record.message) << "\n";
            ++findings;
        } else if (record.level >= Log::Error && record.message.rfind(CannotLoad, 0) == 0) {
            err << "kestrion check-geometry: geometry file "
                << asGiven(record.message.substr(std::string(CannotLoad).size())) << " could not be loaded"
                << (reasons.empty() ? "" : ": " + reasons.front()) << "\n";
            ++problems;
            reasons.clear();
        } else if (record.level >= Log::Error &&
                   record.message.find(" already exists") != std::string::npos) {
            err << "kestrion check-geometry: " << record.message
                << ": two of the files have the same geometry id, so the camera would hold only the first\n";
            ++problems;
            reasons.clear();
        } else if (record.level >= Log::Error) {
            reasons.push_back(record.message);
        }
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
