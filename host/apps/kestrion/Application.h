#pragma once

#include "host/apps/kestrion/Command.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion::Cli {

/// The `kestrion` command line: global options, then a command and its arguments.
///
///     kestrion [--log-level LEVEL] [--plugin-path DIR] COMMAND [ARGS...]
///
/// Global options may also follow the command. Exit codes: 0 success, 1 failure, 2 bad
/// arguments.
class Application {
public:
    Application();
    ~Application();

    void addCommand(std::unique_ptr<Command> command);
    const Command* command(const std::string& name) const;

    /// Parses the arguments (without the program name) and runs the command.
    int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

    std::string help() const;

private:
    std::vector<std::unique_ptr<Command>> m_commands;
};

} // namespace Kestrion::Cli
