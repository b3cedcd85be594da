#include "host/apps/kestrion/CheckGeometryCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/LogCollector.h"
#include "host/core/Algorithm.h"
#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/lib/CommandAlgorithms.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <ostream>

namespace Kestrion::Cli {

namespace {

/// The plugin's algorithm that checks geometry files.
const char* const CheckAlgorithmId = "Atracsys.GeometryCheck";
} // namespace

std::string CheckGeometryCommand::summary() const {
    return "check marker geometry files for markers the camera could confuse";
}

std::string CheckGeometryCommand::help() const {
    return "Usage: kestrion check-geometry [--tolerance MM] FILE...\n"
           "\n"
           "Loads the marker geometry files (INI) as the tracking plugin does, without opening the\n"
           "camera, and says what tracking would: each file that does not load (with the reason,\n"
           "also a geometry id that an earlier file has), each problem of a file that the camera\n"
           "refuses or that tracking warns about (fewer than three fiducials, a value that is not a\n"
           "number, all fiducials at one point), and what lets the camera confuse markers, comparing\n"
           "each file with itself and with the files before it by the distances between their\n"
           "fiducials. One line per finding, in the words tracking uses:\n"
           "  - two geometries could be confused: three fiducials of one lie at the distances of\n"
           "    three of the other within the tolerance;\n"
           "  - one geometry is the mirror image of another;\n"
           "  - a geometry is symmetric, so that its pose could flip;\n"
           "  - two fiducials of a geometry are closer than a fiducial's diameter (11.5 mm).\n"
           "Each line names the files (and the closest distance pair). See docs/geometry-checks.md.\n"
           "\n"
           "Options:\n"
           "  --tolerance MM   the camera's \"Distance matching tolerance\" (default 1.0)\n"
           "\n"
           "Exit status: 0 nothing found; 1 a finding (among them every file the camera would\n"
           "refuse), a file that does not load or whose geometry id another file has already, or no\n"
           "plugin; 2 bad arguments.\n";
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
    std::unique_ptr<Algorithm> check = CommandAlgorithms::instance().create(CheckAlgorithmId);
    if (!check) {
        err << "kestrion check-geometry: the Atracsys tracking plugin is not available (see kestrion "
               "plugins)\n";
        return 1;
    }

    // The plugin loads the files as tracking does and gives its findings as data.
    std::vector<std::string> paths;
    Properties settings;
    settings.setParam("Distance matching tolerance", static_cast<float>(tolerance));
    Properties* list = settings.addSubProperties("Files");
    for (std::size_t i = 0; i < files.size(); ++i) {
        paths.push_back(files[i].rfind(":/", 0) == 0 ? files[i]
                                                     : std::filesystem::absolute(files[i]).string());
        list->addSubProperties("file" + std::to_string(i))->setParam("Path", paths.back());
    }
    Properties results;
    {
        LogCollector quiet(LogCollector::Console::Quiet); // the command says what was found, once
        check->configure(&settings);
        check->compute();
        check->configuration(&results);
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
    const Properties* found = results.subProperty("Findings");
    for (const Properties* finding : found ? found->subProperties() : std::vector<const Properties*>()) {
        const auto file = static_cast<std::size_t>(finding->param("File", 0));
        const std::string kind = finding->param("Kind", std::string());
        const std::string text = asGiven(finding->param("Text", std::string()));
        if (file >= files.size())
            continue;
        if (kind == "unloadable" || kind == "duplicate") {
            err << "kestrion check-geometry: geometry file " << files[file] << " could not be loaded"
                << (text.empty() ? "" : ": " + text) << "\n";
            ++problems;
        } else {
            out << text << "\n";
            ++findings;
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
