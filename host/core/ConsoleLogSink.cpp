#include "host/core/ConsoleLogSink.h"

#include "host/core/Log.h"

#include <unistd.h>

namespace Kestrion {

ConsoleLogSink::ConsoleLogSink(std::FILE* out)
    : m_out(out)
    , m_colour(out && isatty(fileno(out))) {}

ConsoleLogSink::~ConsoleLogSink() {
    std::lock_guard<std::mutex> lock(m_mutex);
    writeRepeats();
}

void ConsoleLogSink::write(const LogRecord& record) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (record.level == m_lastLevel && record.category == m_lastCategory && record.message == m_lastMessage) {
        ++m_repeats;
        return;
    }
    writeRepeats();
    m_lastLevel = record.level;
    m_lastCategory = record.category;
    m_lastMessage = record.message;
    writeLine(record.level, record.category, record.message);
}

void ConsoleLogSink::writeRepeats() {
    if (m_repeats == 0)
        return;
    writeLine(m_lastLevel, m_lastCategory,
              m_lastMessage + " (" + std::to_string(m_repeats) +
                  (m_repeats == 1 ? " more time)" : " more times)"));
    m_repeats = 0;
}

void ConsoleLogSink::writeLine(int level, const std::string& category, const std::string& message) {
    static const char* const colours[] = {"\033[90m", "\033[36m", "", "\033[33m", "\033[31m", "\033[1;31m"};
    const char* colour = (m_colour && level >= 0 && level <= 5) ? colours[level] : "";
    const char* reset = (m_colour && *colour) ? "\033[0m" : "";
    if (category.empty())
        std::fprintf(m_out, "%s[%s] %s%s\n", colour, Log::levelName(level), message.c_str(), reset);
    else
        std::fprintf(m_out, "%s[%s] %s: %s%s\n", colour, Log::levelName(level), category.c_str(),
                     message.c_str(), reset);
    std::fflush(m_out);
}

} // namespace Kestrion
