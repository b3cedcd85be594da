#include "host/lib/widgets/QueuedLogSink.h"

#include <algorithm>

namespace Kestrion {

QueuedLogSink::QueuedLogSink(std::size_t capacity)
    : m_capacity(std::max<std::size_t>(capacity, 1)) {}

void QueuedLogSink::write(const LogRecord& record) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_records.size() >= m_capacity) {
        m_records.pop_front();
        ++m_dropped;
    }
    m_records.push_back(record);
}

QueuedLogSink::Batch QueuedLogSink::take() {
    Batch batch;
    std::lock_guard<std::mutex> lock(m_mutex);
    batch.records.assign(std::make_move_iterator(m_records.begin()),
                         std::make_move_iterator(m_records.end()));
    m_records.clear();
    batch.dropped = m_dropped;
    m_dropped = 0;
    return batch;
}

} // namespace Kestrion
