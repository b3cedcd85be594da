#include "atracsys/recording/AtracsysRecorder.h"

#include "atracsys/recording/AtracsysRecordingCopy.h"

#include "host/core/Log.h"
#include "recording/RecordingWriter.h"

#include <pthread.h>
#include <sstream>

namespace Kestrion::SpryTrack {

namespace {
constexpr const char* Category = "AtracsysRecorder";

std::uint64_t nowUS() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}
} // namespace

AtracsysRecorder::AtracsysRecorder(Limits limits)
    : m_limits(limits) {}

AtracsysRecorder::AtracsysRecorder()
    : AtracsysRecorder(Limits{}) {}

AtracsysRecorder::~AtracsysRecorder() {
    finish();
    wait();
}

void AtracsysRecorder::setTarget(const std::string& file, bool images, bool replace) {
    std::lock_guard<std::mutex> lock(m_mutex); // read by start() on another thread
    m_file = file;
    m_images = images;
    m_replace = replace;
    m_started = false;
}

bool AtracsysRecorder::imagesWanted() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_images;
}

bool AtracsysRecorder::wanted() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_file.empty() && !m_started;
}

bool AtracsysRecorder::start(const Recording::SessionHeader& header) {
    std::string file;
    bool replace = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_file.empty() || m_started)
            return false;
        m_started = true;
        file = m_file;
        replace = m_replace;
    }
    // The writer of an earlier recording finishes its file first: a thread object that is still
    // joinable cannot be given a new thread. Waited for here, on the control thread.
    if (m_writer.joinable()) {
        finish();
        wait();
    }
    auto output = std::make_unique<Recording::RecordingWriter>();
    const bool opened = output->open(file, header, replace);
    {
        // The new recording's state; the old writer is gone, so the queues are empty.
        std::lock_guard<std::mutex> lock(m_mutex);
        m_finishing = false;
        m_interruptedUS = 0;
        m_framesPushed = 0;
        m_framesTaken = 0;
        m_header = header;
        RecordingStatus status;
        status.file = file;
        status.writtenFile = output->partialFile();
        status.startedUS = header.startedUS;
        status.bytes = output->bytesWritten();
        if (!opened) {
            status.state = RecordingStatus::State::CutShort;
            status.reason = output->error();
            status.writtenFile.clear();
        }
        m_status = status;
    }
    m_dropped.store(0);
    m_queued.store(0);
    if (!opened) {
        KESTRION_LOG_ERROR(Category, output->error());
        return false;
    }
    KESTRION_LOG_INFO(Category, "Recording frames to " << file << (header.withImages ? " with images" : ""));
    m_output = std::move(output);
    m_writer = std::thread([this] { writerLoop(); });
    m_active.store(true);
    return true;
}

void AtracsysRecorder::record(const ftkFrameQuery& frame) {
    if (!m_active.load())
        return;
    Recording::Frame* buffer = nullptr;
    bool images = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex); // the queue and the free buffers
        if (m_finishing)
            return;
        images = m_images;
        if (m_queue.size() >= m_limits.frames || m_queuedBytes >= m_limits.bytes) {
            m_dropped.fetch_add(1);
            return;
        }
        if (!m_free.empty()) {
            buffer = m_free.back();
            m_free.pop_back();
        } else {
            // Made once: a full queue, the one being written and the one being filled.
            m_buffers.push_back(std::make_unique<Recording::Frame>());
            buffer = m_buffers.back().get();
        }
    }
    AtracsysRecordingCopy::copyFrame(frame, images, nowUS(), *buffer);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back(buffer);
        m_queuedBytes += buffer->byteSize();
        ++m_framesPushed;
    }
    m_queued.fetch_add(1);
    m_wake.notify_one();
}

void AtracsysRecorder::recordGeometry(const std::string& path, const ftkGeometry& geometry) {
    if (!m_active.load())
        return;
    Recording::AddedGeometry added{0, AtracsysRecordingCopy::geometry(path, geometry)};
    {
        std::lock_guard<std::mutex> lock(m_mutex); // its place among the frames queued
        if (m_finishing)
            return;
        added.beforeFrame = m_framesPushed;
        m_geometries.push_back(std::move(added));
    }
    m_wake.notify_one();
}

void AtracsysRecorder::interrupt() {
    std::lock_guard<std::mutex> lock(m_mutex); // the status, read from any thread
    if (!m_status || m_status->state != RecordingStatus::State::Recording || m_finishing)
        return;
    m_status->state = RecordingStatus::State::Waiting;
    m_interruptedUS = nowUS();
}

bool AtracsysRecorder::interrupted() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_status && m_status->state == RecordingStatus::State::Waiting && !m_finishing;
}

void AtracsysRecorder::resume(std::uint64_t serialNumber, std::int32_t deviceType) {
    std::string other;
    std::string file;
    {
        std::lock_guard<std::mutex> lock(m_mutex); // the gap's place among the frames queued
        if (!m_status || m_status->state != RecordingStatus::State::Waiting || m_finishing)
            return;
        file = m_status->file;
        if (serialNumber != m_header.serialNumber || deviceType != m_header.deviceType) {
            std::ostringstream why;
            why << "the camera reopened is another one (serial 0x" << std::hex << serialNumber
                << ", the recording's camera 0x" << m_header.serialNumber << ")";
            other = why.str();
        } else {
            m_gaps.push_back({m_framesPushed, m_interruptedUS, nowUS()});
            m_status->state = RecordingStatus::State::Recording;
            ++m_status->gaps;
            m_interruptedUS = 0;
        }
    }
    if (!other.empty()) {
        cutShort(other);
        return;
    }
    KESTRION_LOG_INFO(Category, "Recording to " << file << " goes on: the camera was reopened");
    m_wake.notify_one();
}

void AtracsysRecorder::cutShort(const std::string& reason) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_status && !m_finishing && m_status->state != RecordingStatus::State::CutShort) {
            m_status->state = RecordingStatus::State::CutShort;
            m_status->reason = reason;
        }
    }
    finish();
}

std::optional<RecordingStatus> AtracsysRecorder::status() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::optional<RecordingStatus> status = m_status;
    if (status)
        status->dropped = m_dropped.load();
    return status;
}

void AtracsysRecorder::failed(Recording::RecordingWriter& output) {
    KESTRION_LOG_ERROR(Category, output.error() << "; recording stopped, " << output.partialFile()
                                                << " holds the frames written so far");
    std::lock_guard<std::mutex> lock(m_mutex);
    m_status->state = RecordingStatus::State::CutShort;
    m_status->reason = output.error();
    m_status->writtenFile = output.partialFile();
}

void AtracsysRecorder::finish() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_finishing = true;
    }
    m_active.store(false);
    m_wake.notify_one();
}

void AtracsysRecorder::wait() {
    if (m_writer.joinable())
        m_writer.join();
}

void AtracsysRecorder::noteDrops(std::uint64_t& reported, std::chrono::steady_clock::time_point& lastNote,
                                 bool final) {
    const std::uint64_t dropped = m_dropped.load();
    const auto now = std::chrono::steady_clock::now();
    if (dropped == reported || (!final && now - lastNote < std::chrono::seconds(1)))
        return;
    KESTRION_LOG_WARN(Category, "Recording " << m_output->partialFile() << ": " << dropped
                                             << " frame(s) dropped so far, the writer does not keep up");
    reported = dropped;
    lastNote = now;
}

void AtracsysRecorder::writerLoop() {
    // Named, so that its CPU time can be told apart (docs/performance.md).
    pthread_setname_np(pthread_self(), "kestrion-rec");
    Recording::RecordingWriter& output = *m_output;
    bool failedWrite = false;
    std::uint64_t reported = 0;
    auto lastNote = std::chrono::steady_clock::now() - std::chrono::seconds(1);
    std::vector<Recording::AddedGeometry> geometries;
    std::vector<Recording::Gap> gaps;
    const auto write = [&](bool written) {
        if (!failedWrite && !written) {
            failed(output);
            failedWrite = true;
        }
    };
    for (;;) {
        Recording::Frame* frame = nullptr;
        std::size_t bytes = 0;
        geometries.clear();
        gaps.clear();
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] {
                return !m_queue.empty() || !m_geometries.empty() || !m_gaps.empty() || m_finishing;
            });
            // The geometries registered and the gaps noted before the next frame was queued go
            // first.
            while (!m_geometries.empty() && m_geometries.front().beforeFrame <= m_framesTaken) {
                geometries.push_back(std::move(m_geometries.front()));
                m_geometries.pop_front();
            }
            while (!m_gaps.empty() && m_gaps.front().beforeFrame <= m_framesTaken) {
                gaps.push_back(m_gaps.front());
                m_gaps.pop_front();
            }
            if (m_queue.empty() && geometries.empty() && gaps.empty())
                break; // finishing, and everything queued is written
            if (!m_queue.empty()) {
                frame = m_queue.front();
                bytes = frame->byteSize();
            }
        }
        for (const Recording::AddedGeometry& added : geometries)
            write(failedWrite || output.writeGeometry(added.geometry));
        for (const Recording::Gap& gap : gaps)
            write(failedWrite || output.writeGap(gap));
        if (!frame)
            continue;
        write(failedWrite || output.write(*frame));
        bool idle = false;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_queue.pop_front();
            m_queuedBytes -= bytes;
            ++m_framesTaken;
            m_free.push_back(frame);
            idle = m_queue.empty();
            if (!failedWrite) {
                m_status->frames = output.framesWritten();
                m_status->bytes = output.bytesWritten();
            }
        }
        // Waiting for frames: what was written goes to the system, so that a process killed now
        // leaves every frame written so far in the file.
        if (idle)
            write(failedWrite || output.flush());
        noteDrops(reported, lastNote, false);
    }
    noteDrops(reported, lastNote, true);
    if (failedWrite)
        return;
    const std::uint64_t frames = output.framesWritten();
    const std::uint64_t dropped = m_dropped.load();
    std::string file = output.partialFile();
    file.resize(file.size() - 5); // without ".part"
    if (!output.finish(dropped)) {
        KESTRION_LOG_ERROR(Category, output.error() << "; " << output.partialFile()
                                                    << " holds the frames written so far");
        std::lock_guard<std::mutex> lock(m_mutex);
        m_status->state = RecordingStatus::State::CutShort;
        m_status->reason = output.error();
        return;
    }
    std::string cutShortReason;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_status->frames = frames;
        m_status->bytes = output.bytesWritten();
        m_status->writtenFile = file;
        if (m_status->state == RecordingStatus::State::CutShort)
            cutShortReason = m_status->reason;
        else
            m_status->state = RecordingStatus::State::Complete;
    }
    if (!cutShortReason.empty())
        KESTRION_LOG_WARN(Category, "Recording " << file << " cut short after " << frames
                                                 << " frames: " << cutShortReason);
    else if (dropped == 0)
        KESTRION_LOG_INFO(Category, "Recorded " << frames << " frames to " << file);
    else
        KESTRION_LOG_WARN(Category, "Recorded " << frames << " frames to " << file << "; " << dropped
                                                << " frame(s) were dropped");
}

} // namespace Kestrion::SpryTrack
