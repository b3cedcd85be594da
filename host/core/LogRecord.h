#pragma once

#include <cstdint>
#include <string>
#include <thread>

namespace Kestrion {

/// One message as it reaches the log sinks.
struct LogRecord {
    int level = 0;
    std::string category;
    std::string message;
    std::string file;
    int line = -1;
    std::uint64_t timestampMs = 0;
    std::thread::id thread;
};

} // namespace Kestrion
