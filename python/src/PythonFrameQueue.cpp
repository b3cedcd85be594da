#include "python/src/PythonFrameQueue.h"

#include <stdexcept>

namespace Kestrion::Python {

PythonFrameQueue::PythonFrameQueue(std::size_t capacity)
    : m_ring(capacity) {
    if (capacity == 0)
        throw std::invalid_argument("PythonFrameQueue: a capacity of at least one frame is needed");
}

void PythonFrameQueue::push(std::shared_ptr<const StreamData> frame) {
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closed)
            return;
        ++m_pushed;
        if (m_count == m_ring.size()) {
            // Full: the oldest goes. Swapped with the new frame so that its release (perhaps the
            // last reference to a pair of camera images) happens after the lock is let go.
            m_ring[m_head].swap(frame);
            m_head = (m_head + 1) % m_ring.size();
            ++m_dropped;
        } else {
            m_ring[(m_head + m_count) % m_ring.size()] = std::move(frame);
            ++m_count;
        }
        wake = m_waiters > 0;
    }
    if (wake)
        m_arrived.notify_one();
}

std::shared_ptr<const StreamData> PythonFrameQueue::take(std::chrono::nanoseconds wait, bool newest) {
    std::vector<std::shared_ptr<const StreamData>> older; // released after the lock
    std::shared_ptr<const StreamData> frame;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_count == 0 && !m_closed && wait.count() > 0) {
            ++m_waiters;
            m_arrived.wait_for(lock, wait, [this] { return m_count > 0 || m_closed; });
            --m_waiters;
        }
        if (m_count == 0)
            return nullptr;
        if (newest) {
            const std::size_t last = (m_head + m_count - 1) % m_ring.size();
            frame = std::move(m_ring[last]);
            older.reserve(m_count - 1);
            for (std::size_t i = 0; i + 1 < m_count; ++i)
                older.push_back(std::move(m_ring[(m_head + i) % m_ring.size()]));
            m_head = (last + 1) % m_ring.size();
            m_count = 0;
        } else {
            frame = std::move(m_ring[m_head]);
            m_head = (m_head + 1) % m_ring.size();
            --m_count;
        }
    }
    return frame;
}

std::shared_ptr<const StreamData> PythonFrameQueue::peek(std::chrono::nanoseconds wait) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_count == 0 && !m_closed && wait.count() > 0) {
        ++m_waiters;
        m_arrived.wait_for(lock, wait, [this] { return m_count > 0 || m_closed; });
        --m_waiters;
    }
    return m_count > 0 ? m_ring[m_head] : nullptr;
}

void PythonFrameQueue::close() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
    }
    m_arrived.notify_all();
}

std::uint64_t PythonFrameQueue::pushed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pushed;
}

std::uint64_t PythonFrameQueue::dropped() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_dropped;
}

std::size_t PythonFrameQueue::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_count;
}

bool PythonFrameQueue::closed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_closed;
}

} // namespace Kestrion::Python
