#include "host/core/Log.h"

#include "host/core/ConsoleLogSink.h"
#include "host/core/Time.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace Kestrion {

namespace {

struct LogState {
    std::atomic<int> globalLevel{Log::Info};
    // Set when at least one category level exists, so the common case never takes the lock.
    std::atomic<bool> hasCategoryLevels{false};
    std::shared_mutex categoryMutex; // category levels: written rarely, read on every accepted test
    std::map<std::string, int> categoryLevels;

    std::mutex sinkMutex; // the sink list; sinks are called outside it on a snapshot
    std::vector<std::shared_ptr<LogSink>> sinks;
    std::shared_ptr<LogSink> console = std::make_shared<ConsoleLogSink>();
    bool consoleEnabled = true;
};

LogState& state() {
    static LogState s;
    return s;
}

std::vector<std::shared_ptr<LogSink>> sinkSnapshot() {
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.sinkMutex);
    std::vector<std::shared_ptr<LogSink>> result = s.sinks;
    if (s.consoleEnabled)
        result.push_back(s.console);
    return result;
}

} // namespace

void Log::log(int level, const std::string& category, const std::string& message, const char* file,
              int line) {
    LogRecord record;
    record.level = level;
    record.category = category;
    record.message = message;
    record.file = file ? file : "";
    record.line = line;
    record.timestampMs = Time::utcMilliseconds();
    record.thread = std::this_thread::get_id();
    for (const auto& sink : sinkSnapshot())
        sink->write(record);
}

bool Log::isAccepted(int level, const std::string& category) {
    LogState& s = state();
    if (level < s.globalLevel.load(std::memory_order_relaxed))
        return false;
    if (!s.hasCategoryLevels.load(std::memory_order_acquire))
        return true;
    std::shared_lock<std::shared_mutex> lock(s.categoryMutex);
    auto it = s.categoryLevels.find(category);
    return it == s.categoryLevels.end() || level >= it->second;
}

void Log::setGlobalLevel(int level) {
    state().globalLevel.store(level);
}

int Log::globalLevel() {
    return state().globalLevel.load();
}

void Log::setCategoryLevel(const std::string& category, int level) {
    LogState& s = state();
    std::unique_lock<std::shared_mutex> lock(s.categoryMutex);
    s.categoryLevels[category] = level;
    s.hasCategoryLevels.store(true, std::memory_order_release);
}

void Log::clearCategoryLevels() {
    LogState& s = state();
    std::unique_lock<std::shared_mutex> lock(s.categoryMutex);
    s.categoryLevels.clear();
    s.hasCategoryLevels.store(false, std::memory_order_release);
}

void Log::addSink(std::shared_ptr<LogSink> sink) {
    if (!sink)
        return;
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.sinkMutex);
    s.sinks.push_back(std::move(sink));
}

void Log::removeSink(const std::shared_ptr<LogSink>& sink) {
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.sinkMutex);
    s.sinks.erase(std::remove(s.sinks.begin(), s.sinks.end(), sink), s.sinks.end());
}

void Log::setConsoleEnabled(bool enabled) {
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.sinkMutex);
    s.consoleEnabled = enabled;
}

const char* Log::levelName(int level) {
    switch (level) {
    case Trace:
        return "TRACE";
    case Debug:
        return "DEBUG";
    case Info:
        return "INFO";
    case Warning:
        return "WARNING";
    case Error:
        return "ERROR";
    case Fatal:
        return "FATAL";
    default:
        return "LOG";
    }
}

int Log::parseLevel(const std::string& text) {
    std::string lower;
    for (char c : text)
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    static const char* const names[] = {"trace", "debug", "info", "warning", "error", "fatal"};
    for (int i = 0; i < 6; ++i)
        if (lower == names[i])
            return i;
    if (lower == "warn")
        return Warning;
    if (lower.size() == 1 && lower[0] >= '0' && lower[0] <= '5')
        return lower[0] - '0';
    return -1;
}

} // namespace Kestrion
