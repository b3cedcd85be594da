#pragma once

#include "host/apps/kestrion/Command.h"

namespace Kestrion::Cli {

/// `kestrion pivot`: records the poses of one tool while the user pivots it about its tip, finds
/// the tip and prints it, and writes it into the tool's geometry file when asked.
class PivotCommand : public Command {
public:
    std::string name() const override { return "pivot"; }
    std::string summary() const override;
    std::string help() const override;
    int run(CommandContext& context, const std::vector<std::string>& arguments) override;
};

} // namespace Kestrion::Cli
