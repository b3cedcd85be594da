#include "host/apps/kestrion/TrackFrameQueue.h"

#include "host/stream/StreamData.h"

#include <algorithm>

namespace Kestrion::Cli {

TrackFrameQueue::TrackFrameQueue(std::size_t expectedBacklog)
    : m_wakeAt(std::max<std::size_t>(1, expectedBacklog / 2)) {
    m_items.reserve(expectedBacklog);
    m_spare.reserve(expectedBacklog);
}

void TrackFrameQueue::push(std::shared_ptr<const StreamData> data) {
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_items.push_back(std::move(data));
        wake = m_items.size() == m_wakeAt;
    }
    if (wake)
        m_arrived.notify_one();
}

void TrackFrameQueue::takeAll(std::vector<std::shared_ptr<const StreamData>>& out,
                              std::chrono::milliseconds timeout) {
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_arrived.wait_for(lock, timeout, [this] { return m_items.size() >= m_wakeAt; });
        m_spare.swap(m_items); // m_items is now the (empty) list taken out last time
    }
    for (auto& item : m_spare)
        out.push_back(std::move(item));
    m_spare.clear();
}

} // namespace Kestrion::Cli
