#pragma once

#include <string>
#include <vector>

namespace Kestrion::Cli {

class CommandContext;

/// One command of the `kestrion` command line ("plugins", "run", ...). Subclasses live in their
/// own files and are added to the Application in main.cpp.
class Command {
public:
    virtual ~Command() = default;

    /// The word that selects the command.
    virtual std::string name() const = 0;
    /// One line for the command list of `kestrion --help`.
    virtual std::string summary() const = 0;
    /// Usage and options, shown by `kestrion COMMAND --help`; starts with the usage line.
    virtual std::string help() const = 0;
    /// Runs with the arguments that follow the command word (global options removed). Returns
    /// the exit code: 0 success, 1 failure, 2 bad arguments (after printing why to ctx.err()).
    virtual int run(CommandContext& context, const std::vector<std::string>& arguments) = 0;
};

} // namespace Kestrion::Cli
