#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace Kestrion {

class StreamData;
class TrackingStreamData;

/// The newest frame of a tracking stream, for views that redraw on their own schedule: the
/// stream's worker thread puts every frame (a pointer exchange under a short lock, nothing
/// allocated), the GUI thread takes the newest when its timer fires. Frames in between are skipped,
/// so a slow view never slows the stream and never queues a backlog.
class LatestTrackingFrame {
public:
    /// Keeps the tracking part of the stream's data item (the main data of a compound item, so
    /// that camera images are not kept); other items are ignored.
    void put(const std::shared_ptr<const StreamData>& data);
    /// The newest frame put since the last take, or null when none came since.
    std::shared_ptr<const TrackingStreamData> take();
    /// Frames put so far.
    std::uint64_t framesPut() const { return m_framesPut.load(std::memory_order_relaxed); }

private:
    // Put by the stream's worker thread, taken by the GUI thread; held only for the exchange.
    std::mutex m_mutex;
    std::shared_ptr<const TrackingStreamData> m_frame;
    std::atomic<std::uint64_t> m_framesPut{0};
};

} // namespace Kestrion
