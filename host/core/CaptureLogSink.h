#pragma once

#include "host/core/LogSink.h"

#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {

/// Keeps every record in memory; tests use it to assert exact (level, category, message) lines.
class CaptureLogSink : public LogSink {
public:
    void write(const LogRecord& record) override;

    std::vector<LogRecord> records() const;
    /// Number of records equal to (level, category, message).
    std::size_t count(int level, const std::string& category, const std::string& message) const;
    bool contains(int level, const std::string& category, const std::string& message) const;
    /// Number of records whose message contains the text.
    std::size_t countContaining(const std::string& text) const;
    std::size_t size() const;
    void clear();
    /// All records as "level|category|message" lines, for readable test failures.
    std::string dump() const;

private:
    mutable std::mutex m_mutex; // records are written from worker threads and read by the test
    std::vector<LogRecord> m_records;
};

} // namespace Kestrion
