#include "host/apps/kestrion/TrackFrameQueue.h"

#include "host/stream/StreamData.h"

namespace Kestrion::Cli {

TrackFrameQueue::TrackFrameQueue(std::size_t expectedBacklog) {
    m_items.reserve(expectedBacklog);
    m_spare.reserve(expectedBacklog);
}

void TrackFrameQueue::push(std::shared_ptr<const StreamData> data) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_items.push_back(std::move(data));
    }
    m_arrived.notify_one();
}

void TrackFrameQueue::takeAll(std::vector<std::shared_ptr<const StreamData>>& out,
                              std::chrono::milliseconds timeout) {
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_arrived.wait_for(lock, timeout, [this] { return !m_items.empty(); });
        m_spare.swap(m_items); // m_items is now the (empty) list taken out last time
    }
    for (auto& item : m_spare)
        out.push_back(std::move(item));
    m_spare.clear();
}

} // namespace Kestrion::Cli
