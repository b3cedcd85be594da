#pragma once

#include "host/core/LogSink.h"

#include <cstdio>
#include <mutex>

namespace Kestrion {

/// Writes "[LEVEL] category: message" lines to a stream (stderr by default), coloured by
/// level when the stream is a terminal.
class ConsoleLogSink : public LogSink {
public:
    explicit ConsoleLogSink(std::FILE* out = stderr);
    void write(const LogRecord& record) override;

private:
    std::FILE* m_out;
    bool m_colour;
    std::mutex m_mutex; // one line at a time from concurrent threads
};

} // namespace Kestrion
