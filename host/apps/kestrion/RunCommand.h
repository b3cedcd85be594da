#pragma once

#include "host/apps/kestrion/Command.h"

namespace Kestrion::Cli {

/// `kestrion run WORKSPACE`: loads the plugins, then the workspace: converts it, creates,
/// configures and computes each of its algorithms, and reports each one's outcome.
class RunCommand : public Command {
public:
    std::string name() const override { return "run"; }
    std::string summary() const override;
    std::string help() const override;
    int run(CommandContext& context, const std::vector<std::string>& arguments) override;
};

} // namespace Kestrion::Cli
