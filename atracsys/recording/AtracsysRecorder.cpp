#include "atracsys/recording/AtracsysRecorder.h"

#include "atracsys/recording/AtracsysRecordingCopy.h"

#include "host/core/Log.h"
#include "recording/RecordingWriter.h"

#include <pthread.h>

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
    auto output = std::make_unique<Recording::RecordingWriter>();
    if (!output->open(file, header, replace)) {
        KESTRION_LOG_ERROR(Category, output->error());
        return false;
    }
    KESTRION_LOG_INFO(Category, "Recording frames to " << file << (header.withImages ? " with images" : ""));
    m_output = std::move(output);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_finishing = false;
    }
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
    bool failed = false;
    std::uint64_t reported = 0;
    auto lastNote = std::chrono::steady_clock::now() - std::chrono::seconds(1);
    std::vector<Recording::AddedGeometry> geometries;
    for (;;) {
        Recording::Frame* frame = nullptr;
        std::size_t bytes = 0;
        geometries.clear();
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return !m_queue.empty() || !m_geometries.empty() || m_finishing; });
            // The geometries registered before the next frame was queued go first.
            while (!m_geometries.empty() && m_geometries.front().beforeFrame <= m_framesTaken) {
                geometries.push_back(std::move(m_geometries.front()));
                m_geometries.pop_front();
            }
            if (m_queue.empty() && geometries.empty())
                break; // finishing, and everything queued is written
            if (!m_queue.empty()) {
                frame = m_queue.front();
                bytes = frame->byteSize();
            }
        }
        for (const Recording::AddedGeometry& added : geometries)
            if (!failed && !output.writeGeometry(added.geometry)) {
                KESTRION_LOG_ERROR(Category, output.error() << "; recording stopped, " << output.partialFile()
                                                            << " holds the frames written so far");
                failed = true;
            }
        if (!frame)
            continue;
        if (!failed && !output.write(*frame)) {
            KESTRION_LOG_ERROR(Category, output.error() << "; recording stopped, " << output.partialFile()
                                                        << " holds the frames written so far");
            failed = true;
        }
        bool idle = false;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_queue.pop_front();
            m_queuedBytes -= bytes;
            ++m_framesTaken;
            m_free.push_back(frame);
            idle = m_queue.empty();
        }
        // Waiting for frames: what was written goes to the system, so that a process killed now
        // leaves every frame written so far in the file.
        if (idle && !failed && !output.flush()) {
            KESTRION_LOG_ERROR(Category, output.error() << "; recording stopped, " << output.partialFile()
                                                        << " holds the frames written so far");
            failed = true;
        }
        noteDrops(reported, lastNote, false);
    }
    noteDrops(reported, lastNote, true);
    if (failed)
        return;
    const std::uint64_t frames = output.framesWritten();
    const std::uint64_t dropped = m_dropped.load();
    std::string file = output.partialFile();
    file.resize(file.size() - 5); // without ".part"
    if (!output.finish(dropped)) {
        KESTRION_LOG_ERROR(Category, output.error() << "; " << output.partialFile()
                                                    << " holds the frames written so far");
        return;
    }
    if (dropped == 0)
        KESTRION_LOG_INFO(Category, "Recorded " << frames << " frames to " << file);
    else
        KESTRION_LOG_WARN(Category, "Recorded " << frames << " frames to " << file << "; " << dropped
                                                << " frame(s) were dropped");
}

} // namespace Kestrion::SpryTrack
