#include "host/lib/trackingviews/LatestTrackingFrame.h"

#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingStreamData.h"

namespace Kestrion {

void LatestTrackingFrame::put(const std::shared_ptr<const StreamData>& data) {
    const auto* compound = dynamic_cast<const CompoundStreamData*>(data.get());
    std::shared_ptr<const TrackingStreamData> frame =
        std::dynamic_pointer_cast<const TrackingStreamData>(compound ? compound->mainData() : data);
    if (!frame)
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_frame.swap(frame);
    }
    m_framesPut.fetch_add(1, std::memory_order_relaxed);
    // `frame` now holds the frame the view skipped; it is released here, outside the lock.
}

std::shared_ptr<const TrackingStreamData> LatestTrackingFrame::take() {
    std::shared_ptr<const TrackingStreamData> frame;
    std::lock_guard<std::mutex> lock(m_mutex);
    frame.swap(m_frame);
    return frame;
}

} // namespace Kestrion
