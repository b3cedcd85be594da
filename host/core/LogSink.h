#pragma once

#include "host/core/LogRecord.h"

namespace Kestrion {

/// Receives every accepted log record. Sinks are called from whichever thread logs,
/// so an implementation guards its own state.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(const LogRecord& record) = 0;
};

} // namespace Kestrion
