#pragma once

#include "host/apps/kestrion/Command.h"

namespace Kestrion::Cli {

/// `kestrion track`: live tracking from the command line. Creates the tracking stream through the
/// plugins' factories ("Atracsys.SpryTrackStream"), loads the marker geometries, opens and starts
/// the camera, and shows a table of the device, the frames and every instrument's pose, refreshed
/// about once a second, until a duration, a number of frames or Ctrl-C ends it; optionally records
/// every frame to CSV and saves camera images with the detected fiducials marked.
class TrackCommand : public Command {
public:
    std::string name() const override { return "track"; }
    std::string summary() const override;
    std::string help() const override;
    int run(CommandContext& context, const std::vector<std::string>& arguments) override;
};

} // namespace Kestrion::Cli
