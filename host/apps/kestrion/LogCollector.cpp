#include "host/apps/kestrion/LogCollector.h"

#include "host/core/CaptureLogSink.h"
#include "host/core/Log.h"

namespace Kestrion::Cli {

LogCollector::LogCollector(Console console)
    : m_sink(std::make_shared<CaptureLogSink>())
    , m_console(console) {
    Log::addSink(m_sink);
    if (m_console == Console::Quiet)
        Log::setConsoleEnabled(false);
}

LogCollector::~LogCollector() {
    if (m_console == Console::Quiet)
        Log::setConsoleEnabled(true);
    Log::removeSink(m_sink);
}

std::vector<LogRecord> LogCollector::records() const {
    return m_sink->records();
}

std::vector<LogRecord> LogCollector::errors() const {
    std::vector<LogRecord> result;
    for (auto& record : m_sink->records())
        if (record.level >= Log::Error)
            result.push_back(record);
    return result;
}

std::string LogCollector::errorText() const {
    if (m_console == Console::Shown && Log::isAccepted(Log::Error, ""))
        return "";
    std::string text;
    for (const auto& record : errors())
        text += "  " + record.message + "\n";
    return text;
}

} // namespace Kestrion::Cli
