#pragma once

#include "host/core/LogSink.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

namespace Kestrion {

/// A log sink that keeps records until a consumer takes them: loggers on any thread hand them
/// over without waiting for the consumer (the GUI thread of a log window, which takes them on
/// its own schedule). At most `capacity` records wait; beyond that the oldest are dropped and
/// counted.
class QueuedLogSink : public LogSink {
public:
    explicit QueuedLogSink(std::size_t capacity = 10000);

    void write(const LogRecord& record) override;

    /// The waiting records, oldest first, and how many were dropped since the last take.
    struct Batch {
        std::vector<LogRecord> records;
        std::size_t dropped = 0;
    };
    Batch take();

private:
    const std::size_t m_capacity;
    std::mutex m_mutex; // written by logging threads, taken by the consumer
    std::deque<LogRecord> m_records;
    std::size_t m_dropped = 0;
};

} // namespace Kestrion
