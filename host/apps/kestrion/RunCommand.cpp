#include "host/apps/kestrion/RunCommand.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/core/Log.h"
#include "host/core/LogSink.h"
#include "host/core/Properties.h"
#include "host/lib/Workspace.h"

#include <atomic>
#include <memory>
#include <ostream>

namespace Kestrion::Cli {

namespace {

/// Counts the errors logged while it is installed, from any thread (algorithms may log from
/// their workers).
class ErrorCounter : public LogSink {
public:
    void write(const LogRecord& record) override {
        if (record.level >= Log::Error)
            m_errors.fetch_add(1);
    }
    std::size_t errors() const { return m_errors.load(); }

private:
    std::atomic<std::size_t> m_errors{0};
};

/// The algorithm's top-level parameters as the algorithm now reports them: "a=1, b=text".
std::string parameters(const Algorithm& algorithm) {
    Properties configuration;
    algorithm.configuration(&configuration);
    std::string text;
    for (const std::string& name : configuration.paramNames())
        text += (text.empty() ? "" : ", ") + name + "=" + configuration.paramText(name).value_or("");
    return text;
}

} // namespace

std::string RunCommand::summary() const {
    return "load a workspace (.kws) and compute its algorithms";
}

std::string RunCommand::help() const {
    return "Usage: kestrion run WORKSPACE\n"
           "\n"
           "Loads the plugins, reads the workspace file, applies the workspace conversions, then\n"
           "creates, configures and computes each algorithm of its \"Algorithms\" block in order.\n"
           "Prints the outcome of each algorithm with the parameters it ran with (as the algorithm\n"
           "reports them), then a summary that ends in \"failed\" exactly when the exit status is 1;\n"
           "problems are logged on stderr.\n"
           "Exits with 1 when the workspace cannot be read, an algorithm is unknown or fails, or an\n"
           "error is logged while computing (a marker file that cannot be read, for instance).\n";
}

int RunCommand::run(CommandContext& context, const std::vector<std::string>& arguments) {
    if (arguments.size() != 1) {
        context.err() << "kestrion run: " << (arguments.empty() ? "no workspace given" : "too many arguments")
                      << " (see kestrion run --help)\n";
        return 2;
    }
    if (!context.loadPlugins())
        return 1;

    std::ostream& out = context.out();
    const std::string& file = arguments.front();
    Workspace workspace;
    const auto errorCounter = std::make_shared<ErrorCounter>();
    Log::addSink(errorCounter);
    const Workspace::LoadReport report = workspace.load(file);
    Log::removeSink(errorCounter);
    out << "Workspace " << file << "\n";
    for (const auto& conversion : report.conversions)
        out << "  converted: " << conversion << "\n";
    for (const auto& item : workspace.algorithms()) {
        out << "  " << item.identifier << ": "
            << (!item.algorithm ? "unknown algorithm"
                : item.computed ? "computed"
                                : "failed");
        const std::string with = item.algorithm ? parameters(*item.algorithm) : std::string();
        out << (with.empty() ? "" : " with " + with) << "\n";
    }
    if (!report.read) {
        out << "Not loaded\n";
        // The reason is logged; say it here when the log level hides it.
        if (!Log::isAccepted(Log::Error, "Workspace") && !report.errors.empty())
            context.err() << "kestrion run: " << report.errors.front() << "\n";
        return 1;
    }
    // The summary says failed exactly when the exit status does.
    const std::size_t errors = errorCounter->errors();
    const bool ok = report.ok() && errors == 0;
    out << "Summary: " << report.computed << " of " << workspace.algorithms().size()
        << " algorithms computed";
    if (report.ok() && errors > 0) // beyond the failures listed above
        out << ", " << errors << " error(s) logged";
    out << (ok ? "\n" : "; failed (exit status 1)\n");
    if (report.ok() && errors > 0)
        context.err() << "kestrion run: " << errors << " error(s) logged while computing the workspace "
                      << file << "\n";
    return ok ? 0 : 1;
}

} // namespace Kestrion::Cli
