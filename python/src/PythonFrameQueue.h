#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Kestrion {
class StreamData;
}

namespace Kestrion::Python {

/// Hands the frames of a stream from its worker thread to Python. The worker only puts a shared
/// pointer into a ring of fixed capacity (the items are immutable) and returns: no Python, no
/// interpreter lock, no allocation on its side. When the ring is full the oldest frame makes room
/// for the newest and is counted as dropped: a consumer that does not keep up loses the oldest
/// frames, never the current one, and never slows the camera down.
///
/// The consumer takes the oldest frame (every frame in order) or the newest (discarding the older
/// ones, which it did not ask for, so they are not counted as dropped).
class PythonFrameQueue {
public:
    explicit PythonFrameQueue(std::size_t capacity);

    /// Called on the stream's worker thread.
    void push(std::shared_ptr<const StreamData> frame);
    /// Waits up to `wait` for a frame and takes it (null when none came, or after close()).
    std::shared_ptr<const StreamData> take(std::chrono::nanoseconds wait, bool newest);
    /// Waits up to `wait` for a frame and returns the oldest without taking it (null when none).
    std::shared_ptr<const StreamData> peek(std::chrono::nanoseconds wait);
    /// Ends the waits; frames pushed afterwards are ignored, those queued can still be taken.
    void close();

    std::size_t capacity() const { return m_ring.size(); }
    std::uint64_t pushed() const;
    std::uint64_t dropped() const;
    std::size_t size() const;
    bool closed() const;

private:
    // The worker pushes and the Python thread takes: both under this lock, held for a pointer
    // move only (a frame that makes room is released after the lock is let go).
    mutable std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<std::shared_ptr<const StreamData>> m_ring;
    std::size_t m_head = 0; // the oldest frame
    std::size_t m_count = 0;
    std::uint64_t m_pushed = 0;
    std::uint64_t m_dropped = 0;
    int m_waiters = 0; // the worker signals only when somebody waits
    bool m_closed = false;
};

} // namespace Kestrion::Python
