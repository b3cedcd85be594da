#pragma once

#include <string>

namespace Kestrion {

struct LogRecord;

/// Which log lines the desktop's log views show as one line with a count: the same level,
/// category and message in a row. Warnings and errors also fold when only their numbers differ
/// ("... for 65 times in a row!", a per-frame warning with its frame number), so that a failure
/// that repeats every half second stays one line whose count goes up; informational lines fold
/// only when they are identical. For people only: no decision is taken from it.
class LogFolding {
public:
    /// Records with equal keys fold into one line.
    static std::string key(const LogRecord& record);
};

} // namespace Kestrion
