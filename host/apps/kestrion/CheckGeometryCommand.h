#pragma once

#include "host/apps/kestrion/Command.h"

namespace Kestrion::Cli {

/// `kestrion check-geometry FILE...`: loads marker geometry files into the tracking plugin's
/// stream, without opening the camera, and reports what would let the camera confuse them (the
/// plugin's ambiguity warnings), one line per finding.
class CheckGeometryCommand : public Command {
public:
    std::string name() const override { return "check-geometry"; }
    std::string summary() const override;
    std::string help() const override;
    int run(CommandContext& context, const std::vector<std::string>& arguments) override;
};

} // namespace Kestrion::Cli
