#pragma once

#include "host/apps/kestrion/Command.h"

namespace Kestrion::Cli {

/// `kestrion plugins`: lists every plugin library of the plugin folders with its id, version,
/// status (or why it failed) and the algorithms it offers.
class PluginsCommand : public Command {
public:
    std::string name() const override { return "plugins"; }
    std::string summary() const override;
    std::string help() const override;
    int run(CommandContext& context, const std::vector<std::string>& arguments) override;
};

} // namespace Kestrion::Cli
