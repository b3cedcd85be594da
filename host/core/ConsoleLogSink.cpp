#include "host/core/ConsoleLogSink.h"

#include "host/core/Log.h"

#include <unistd.h>

namespace Kestrion {

ConsoleLogSink::ConsoleLogSink(std::FILE* out)
    : m_out(out)
    , m_colour(out && isatty(fileno(out))) {}

void ConsoleLogSink::write(const LogRecord& record) {
    static const char* const colours[] = {"\033[90m", "\033[36m", "", "\033[33m", "\033[31m", "\033[1;31m"};
    const char* colour = (m_colour && record.level >= 0 && record.level <= 5) ? colours[record.level] : "";
    const char* reset = (m_colour && *colour) ? "\033[0m" : "";
    std::lock_guard<std::mutex> lock(m_mutex);
    if (record.category.empty())
        std::fprintf(m_out, "%s[%s] %s%s\n", colour, Log::levelName(record.level), record.message.c_str(),
                     reset);
    else
        std::fprintf(m_out, "%s[%s] %s: %s%s\n", colour, Log::levelName(record.level),
                     record.category.c_str(), record.message.c_str(), reset);
    std::fflush(m_out);
}

} // namespace Kestrion
