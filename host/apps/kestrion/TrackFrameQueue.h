#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace Kestrion {
class StreamData;
}

namespace Kestrion::Cli {

/// Hands the frames of a stream from its worker thread to the command's thread. The worker only
/// appends a shared pointer (the items are immutable) so that it returns at once; the command
/// takes everything queued, in order, and does the slow work (table, files) on its own thread.
///
/// The worker does not wake the command thread for every frame: a woken thread tends to take
/// the worker's processor at once, and at a few hundred frames a second the worker, waiting for
/// it back, then misses the camera's next frame. The command thread comes by itself at its own
/// interval, and is woken only when the backlog grows large.
class TrackFrameQueue {
public:
    explicit TrackFrameQueue(std::size_t expectedBacklog = 256);

    /// Called on the stream's worker thread.
    void push(std::shared_ptr<const StreamData> data);
    /// Waits until the timeout passes (or the backlog is large), then moves every queued item to
    /// the end of `out` (whose capacity is kept from call to call by the caller).
    void takeAll(std::vector<std::shared_ptr<const StreamData>>& out, std::chrono::milliseconds timeout);

private:
    // The worker appends and the command thread swaps the list out: both under this lock, held
    // only for the append or the swap.
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<std::shared_ptr<const StreamData>> m_items;
    std::vector<std::shared_ptr<const StreamData>> m_spare; // swapped in so that neither side allocates
    std::size_t m_wakeAt;                                   // backlog at which the worker wakes the taker
};

} // namespace Kestrion::Cli
