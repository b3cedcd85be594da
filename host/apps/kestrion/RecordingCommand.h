#pragma once

#include "host/apps/kestrion/Command.h"

namespace Kestrion::Cli {

/// `kestrion recording FILE`: describes a session recording without replaying it: the camera,
/// when it began, whether it holds images, its frames and the recorder's drops, the geometries
/// registered at its start and during it (with the files they came from, to replay it with the
/// same markers), and the camera's option values.
class RecordingCommand : public Command {
public:
    std::string name() const override { return "recording"; }
    std::string summary() const override;
    std::string help() const override;
    int run(CommandContext& context, const std::vector<std::string>& arguments) override;
};

} // namespace Kestrion::Cli
