#pragma once

#include "host/core/LogSink.h"

#include <memory>
#include <sstream>
#include <string>

namespace Kestrion {

/// The host logger. Levels: 0 trace, 1 debug, 2 info, 3 warning, 4 error, 5 fatal.
/// A message is accepted when its level is at least the global level and at least the level
/// set for its category (if any). Callers test isAccepted() before building a message; the
/// KESTRION_LOG macros do so.
class Log {
public:
    enum Level : int { Trace = 0, Debug = 1, Info = 2, Warning = 3, Error = 4, Fatal = 5 };

    static void log(int level, const std::string& category, const std::string& message, const char* file,
                    int line);
    static bool isAccepted(int level, const std::string& category);

    static void setGlobalLevel(int level);
    static int globalLevel();
    /// Raises (or lowers) the threshold for one category on top of the global level.
    static void setCategoryLevel(const std::string& category, int level);
    static void clearCategoryLevels();

    static void addSink(std::shared_ptr<LogSink> sink);
    static void removeSink(const std::shared_ptr<LogSink>& sink);
    /// The coloured console sink on stderr is installed by default.
    static void setConsoleEnabled(bool enabled);

    static const char* levelName(int level);
    /// Parses "trace".."fatal" or a digit; returns -1 for anything else.
    static int parseLevel(const std::string& text);
};

} // namespace Kestrion

/// Builds the message only when the level is accepted for the category.
#define KESTRION_LOG(level, category, expr)                                                                  \
    do {                                                                                                     \
        const int kestrionLogLevel_ = (level);                                                               \
        if (::Kestrion::Log::isAccepted(kestrionLogLevel_, (category))) {                                    \
            std::ostringstream kestrionLogStream_;                                                           \
            kestrionLogStream_ << expr;                                                                      \
            ::Kestrion::Log::log(kestrionLogLevel_, (category), kestrionLogStream_.str(), __FILE__,          \
                                 __LINE__);                                                                  \
        }                                                                                                    \
    } while (false)

#define KESTRION_LOG_DEBUG(category, expr) KESTRION_LOG(::Kestrion::Log::Debug, category, expr)
#define KESTRION_LOG_INFO(category, expr) KESTRION_LOG(::Kestrion::Log::Info, category, expr)
#define KESTRION_LOG_WARN(category, expr) KESTRION_LOG(::Kestrion::Log::Warning, category, expr)
#define KESTRION_LOG_ERROR(category, expr) KESTRION_LOG(::Kestrion::Log::Error, category, expr)
