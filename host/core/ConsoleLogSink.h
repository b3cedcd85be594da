#pragma once

#include "host/core/LogSink.h"

#include <cstdio>
#include <mutex>
#include <string>

namespace Kestrion {

/// Writes "[LEVEL] category: message" lines to a stream (stderr by default), coloured by
/// level when the stream is a terminal. A line that repeats the one before (a retry failing
/// again and again) is counted rather than written, and the count is written when another line
/// comes or the sink goes.
class ConsoleLogSink : public LogSink {
public:
    explicit ConsoleLogSink(std::FILE* out = stderr);
    ~ConsoleLogSink() override;
    void write(const LogRecord& record) override;

private:
    void writeLine(int level, const std::string& category, const std::string& message);
    void writeRepeats();

    std::FILE* m_out;
    bool m_colour;
    std::mutex m_mutex; // one line at a time from concurrent threads, and the repeat count
    int m_lastLevel = -1;
    std::string m_lastCategory;
    std::string m_lastMessage;
    std::size_t m_repeats = 0;
};

} // namespace Kestrion
