#include "host/core/CaptureLogSink.h"

#include <sstream>

namespace Kestrion {

void CaptureLogSink::write(const LogRecord& record) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_records.push_back(record);
}

std::vector<LogRecord> CaptureLogSink::records() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

std::size_t CaptureLogSink::count(int level, const std::string& category, const std::string& message) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::size_t n = 0;
    for (const auto& r : m_records)
        if (r.level == level && r.category == category && r.message == message)
            ++n;
    return n;
}

bool CaptureLogSink::contains(int level, const std::string& category, const std::string& message) const {
    return count(level, category, message) > 0;
}

std::size_t CaptureLogSink::countContaining(const std::string& text) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::size_t n = 0;
    for (const auto& r : m_records)
        if (r.message.find(text) != std::string::npos)
            ++n;
    return n;
}

std::size_t CaptureLogSink::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_records.size();
}

void CaptureLogSink::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_records.clear();
}

std::string CaptureLogSink::dump() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::ostringstream out;
    for (const auto& r : m_records)
        out << r.level << '|' << r.category << '|' << r.message << '\n';
    return out.str();
}

} // namespace Kestrion
