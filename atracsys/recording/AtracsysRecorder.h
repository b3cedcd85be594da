#pragma once

#include "host/stream/state/RecordingStatus.h"
#include "recording/RecordingTypes.h"

#include <ftkInterface.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Kestrion::Recording {
class RecordingWriter;
}

namespace Kestrion::SpryTrack {

/// Records the frames a stream fetches to a recording file (docs/recording-format.md).
///
/// The recording belongs to the tracking session: when the camera is lost (interrupt()) and
/// reopened (resume()), it goes on into the same file after a gap record; it ends with finish(),
/// or cut short when it cannot go on (a write failed, another camera was reopened). status() tells
/// where it stands, as data.
///
/// Threads. record() runs on the stream's worker thread and only copies the frame into a reused
/// buffer and queues it; a writer thread of its own compresses and writes. The queue is bounded
/// in frames and in bytes: when the writer falls behind, the frame is dropped and counted, and
/// the writer logs the drops. m_mutex guards the queue, the free buffers and the counters
/// shared by the two threads; it is held only to move pointers, never during a copy or a write.
class AtracsysRecorder {
public:
    struct Limits {
        std::size_t frames = 128;       ///< Frames waiting for the writer at most.
        std::size_t bytes = 512u << 20; ///< Bytes of frames waiting for the writer at most.
    };

    explicit AtracsysRecorder(Limits limits);
    AtracsysRecorder();
    /// Finishes the recording (the frames queued are written) and ends the writer thread.
    ~AtracsysRecorder();
    AtracsysRecorder(const AtracsysRecorder&) = delete;
    AtracsysRecorder& operator=(const AtracsysRecorder&) = delete;

    /// The file to record to (empty: none), whether the camera images are recorded, and whether
    /// an existing file of that name may be replaced. Taken into account by the next start().
    void setTarget(const std::string& file, bool images, bool replace = false);
    /// Whether the target asks for the camera images.
    bool imagesWanted() const;
    /// Whether a file is set and its recording not started yet.
    bool wanted() const;
    /// Creates the file, writes the header and starts the writer thread. False (and an error
    /// line) when the file cannot be created; a file records one session only. A recording still
    /// running (of an earlier target) is finished first and its writer waited for.
    bool start(const Recording::SessionHeader& header);
    /// The camera was lost (the stream closed to be reopened): the recording waits for it.
    void interrupt();
    /// Whether the recording waits for the camera since interrupt().
    bool interrupted() const;
    /// The camera is back: the recording goes on after a gap record. Another camera than the
    /// recorded one (serial number, type) cannot go on in this file: the recording ends, cut short.
    void resume(std::uint64_t serialNumber, std::int32_t deviceType);
    /// Worker thread: copies the fetched frame and queues it for the writer, or drops it when the
    /// queue is full. Does nothing while no recording runs.
    void record(const ftkFrameQuery& frame);
    /// A geometry registered on the camera while recording (any thread): written after the frames
    /// queued so far. Does nothing while no recording runs.
    void recordGeometry(const std::string& path, const ftkGeometry& geometry);
    /// Ends the recording after the frames queued so far, without waiting for the writer.
    void finish();
    /// Ends it as cut short, for `reason`, after the frames queued so far.
    void cutShort(const std::string& reason);
    /// Waits until the writer has finished the file (after finish()).
    void wait();

    bool recording() const { return m_active.load(); }
    std::uint64_t framesQueued() const { return m_queued.load(); }
    std::uint64_t framesDropped() const { return m_dropped.load(); }
    /// Where the recording stands; none before the first start().
    std::optional<RecordingStatus> status() const;

private:
    void writerLoop();
    /// Writer thread: a failed write ends the recording, cut short, the frames so far in the file.
    void failed(Recording::RecordingWriter& output);
    void noteDrops(std::uint64_t& reported, std::chrono::steady_clock::time_point& lastNote, bool final);

    const Limits m_limits;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::string m_file;                    // (mutex)
    bool m_images = false;                 // (mutex)
    bool m_replace = false;                // (mutex)
    bool m_started = false;                // (mutex) a recording was started with this file
    bool m_finishing = false;              // (mutex)
    std::deque<Recording::Frame*> m_queue; // (mutex) frames for the writer, oldest first
    std::vector<Recording::Frame*> m_free; // (mutex) buffers for the worker
    std::vector<std::unique_ptr<Recording::Frame>> m_buffers; // (mutex) every buffer made
    std::size_t m_queuedBytes = 0;                            // (mutex)
    std::uint64_t m_framesPushed = 0;                         // (mutex) frames ever queued
    std::uint64_t m_framesTaken = 0;                          // (mutex) frames the writer took from the queue
    /// (mutex) geometries for the writer, each before the frame numbered beforeFrame in the queue's order.
    std::deque<Recording::AddedGeometry> m_geometries;
    std::deque<Recording::Gap> m_gaps;       // (mutex) gaps for the writer, placed like geometries
    std::optional<RecordingStatus> m_status; // (mutex) what status() returns
    Recording::SessionHeader m_header;       // (mutex) the camera recorded
    std::uint64_t m_interruptedUS = 0;       // (mutex) when the camera was lost; 0: not lost
    std::atomic<bool> m_active{false};
    std::atomic<std::uint64_t> m_queued{0};
    std::atomic<std::uint64_t> m_dropped{0};
    std::thread m_writer;
    /// The file; the writer thread's alone once started.
    std::unique_ptr<Recording::RecordingWriter> m_output;
};

} // namespace Kestrion::SpryTrack
