#pragma once

#include "host/core/LogSink.h"

#include <memory>
#include <string>
#include <vector>

namespace Kestrion {
class CaptureLogSink;
}

namespace Kestrion::Cli {

/// Keeps the lines logged while it lives, so that a command can show the user why something
/// failed. It is for showing only: what a command decides comes from data (stream state, health,
/// results of calls), never from the text of these lines.
class LogCollector {
public:
    enum class Console {
        Shown, ///< the console shows the lines as usual
        Quiet  ///< the console is silenced while it lives: the command prints the lines itself
    };

    explicit LogCollector(Console console = Console::Shown);
    ~LogCollector();
    LogCollector(const LogCollector&) = delete;
    LogCollector& operator=(const LogCollector&) = delete;

    /// Every line so far.
    std::vector<LogRecord> records() const;
    /// The error lines so far (error level and above).
    std::vector<LogRecord> errors() const;
    /// The error lines as an indented block ("  line\n" each), or "" when the console showed
    /// them already.
    std::string errorText() const;

private:
    std::shared_ptr<CaptureLogSink> m_sink;
    Console m_console;
};

} // namespace Kestrion::Cli
