#include "host/apps/kestrion/Application.h"
#include "host/apps/kestrion/CamerasCommand.h"
#include "host/apps/kestrion/CheckGeometryCommand.h"
#include "host/apps/kestrion/PivotCommand.h"
#include "host/apps/kestrion/PluginsCommand.h"
#include "host/apps/kestrion/RecordingCommand.h"
#include "host/apps/kestrion/RunCommand.h"
#include "host/apps/kestrion/TrackCommand.h"

#include <iostream>

int main(int argc, char** argv) {
    Kestrion::Cli::Application application;
    application.addCommand(std::make_unique<Kestrion::Cli::CamerasCommand>());
    application.addCommand(std::make_unique<Kestrion::Cli::PluginsCommand>());
    application.addCommand(std::make_unique<Kestrion::Cli::RunCommand>());
    application.addCommand(std::make_unique<Kestrion::Cli::TrackCommand>());
    application.addCommand(std::make_unique<Kestrion::Cli::PivotCommand>());
    application.addCommand(std::make_unique<Kestrion::Cli::CheckGeometryCommand>());
    application.addCommand(std::make_unique<Kestrion::Cli::RecordingCommand>());
    return application.run(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
