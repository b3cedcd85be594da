#pragma once

#include "host/core/LogSink.h"

#include <fstream>
#include <mutex>
#include <string>

namespace Kestrion {

/// Appends timestamped lines to a file.
class FileLogSink : public LogSink {
public:
    explicit FileLogSink(const std::string& path);
    bool isOpen() const { return m_stream.is_open(); }
    void write(const LogRecord& record) override;

private:
    std::ofstream m_stream;
    std::mutex m_mutex; // one line at a time from concurrent threads
};

} // namespace Kestrion
