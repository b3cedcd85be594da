#include "host/apps/kestrion/CamerasCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/TrackConfiguration.h"
#include "host/core/Properties.h"
#include "host/lib/FactoryRegistry.h"
#include "host/stream/Stream.h"
#include "host/stream/StreamAlgorithm.h"
#include "host/stream/connection/CameraSelection.h"

#include <cstdio>
#include <ostream>

namespace Kestrion::Cli {

std::string CamerasCommand::summary() const {
    return "list the connected tracking cameras (type and serial number)";
}

std::string CamerasCommand::help() const {
    return "Usage: kestrion cameras\n"
           "\n"
           "Lists every tracking camera connected now, one line each: its type and its serial\n"
           "number, which `kestrion track --serial` takes to choose among several cameras.\n"
           "\n"
           "Exit status: 0 at least one camera; 1 no plugin or no camera; 2 bad arguments.\n";
}

int CamerasCommand::run(CommandContext& context, const std::vector<std::string>& arguments) {
    std::ostream& out = context.out();
    std::ostream& err = context.err();
    if (!arguments.empty()) {
        err << "kestrion cameras: unexpected argument '" << arguments.front()
            << "' (see kestrion cameras --help)\n";
        return 2;
    }
    if (!context.loadPlugins())
        return 1;
    // The stream lists the cameras without opening one.
    std::unique_ptr<Algorithm> algorithm =
        FactoryRegistry::instance().createAlgorithm(TrackConfiguration::AlgorithmId);
    if (algorithm) {
        Properties properties;
        properties.setParam("open", false);
        properties.setParam("start", false);
        algorithm->configure(&properties);
        algorithm->compute();
    }
    auto* streamAlgorithm = dynamic_cast<StreamAlgorithm*>(algorithm.get());
    const auto* selection =
        dynamic_cast<const CameraSelection*>(streamAlgorithm ? streamAlgorithm->outputStream() : nullptr);
    if (!selection) {
        err << "kestrion cameras: no tracking plugin that lists cameras is loaded\n";
        return 1;
    }
    std::string error;
    const std::vector<ConnectedCamera> cameras = selection->connectedCameras(&error);
    if (cameras.empty()) {
        err << "kestrion cameras: " << (error.empty() ? "no camera connected" : error) << "\n";
        return 1;
    }
    char line[128];
    std::snprintf(line, sizeof line, "%-16s %s", "Type", "Serial number");
    out << line << "\n";
    for (const ConnectedCamera& camera : cameras) {
        std::snprintf(line, sizeof line, "%-16s %s", camera.typeName.c_str(),
                      CameraSelection::serialText(camera.serialNumber).c_str());
        out << line << "\n";
    }
    return 0;
}

} // namespace Kestrion::Cli
