#include "host/core/FileLogSink.h"

#include "host/core/Log.h"

namespace Kestrion {

FileLogSink::FileLogSink(const std::string& path)
    : m_stream(path, std::ios::app) {}

void FileLogSink::write(const LogRecord& record) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_stream)
        return;
    m_stream << record.timestampMs << ' ' << Log::levelName(record.level) << ' ' << record.category << ": "
             << record.message << '\n';
    m_stream.flush();
}

} // namespace Kestrion
