#pragma once

#include "host/apps/kestrion/Command.h"

namespace Kestrion::Cli {

/// `kestrion cameras`: lists every connected tracking camera with its type and serial number,
/// through the tracking plugin (the stream it creates, unopened, lists them), so that one can be
/// chosen with `kestrion track --serial`.
class CamerasCommand : public Command {
public:
    std::string name() const override { return "cameras"; }
    std::string summary() const override;
    std::string help() const override;
    int run(CommandContext& context, const std::vector<std::string>& arguments) override;
};

} // namespace Kestrion::Cli
