#include "host/ros2/Ros2Publisher.h"

#include "host/core/Log.h"
#include "host/core/Time.h"
#include "host/ros2/Ros2Diagnostics.h"
#include "host/ros2/Ros2DomainConfig.h"
#include "host/ros2/Ros2FrameContent.h"
#include "host/ros2/Ros2Names.h"
#include "host/ros2/Ros2Participant.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"

#include <algorithm>
#include <utility>

namespace Kestrion::Ros2 {

namespace {

const char* const Category = "Ros2Publisher";
// How long stop() waits for the reliable topics' subscribers to take the last messages.
constexpr double FinalAcknowledgementS = 1.0;
// The camera's health is looked at this often at least, for the diagnostics of a stream that stops
// delivering (no frame wakes the thread then).
constexpr std::chrono::milliseconds HealthCheckInterval{100};
// While frames flow to a subscriber, the thread looks at the slot this often instead of having the
// worker wake it (a system call of several microseconds on a busy machine), and keeps doing so
// for this long after the last frame.
constexpr std::chrono::microseconds PollInterval{250};
constexpr std::chrono::milliseconds PollingHold{100};

} // namespace

Ros2Publisher::Ros2Publisher(Ros2Settings settings)
    : m_settings(std::move(settings)) {}

Ros2Publisher::~Ros2Publisher() {
    stop();
}

bool Ros2Publisher::start(std::string* error) {
    auto fail = [&](const std::string& why) {
        const std::string message = "ROS 2 publisher cannot start: " + why;
        KESTRION_LOG_ERROR(Category, message);
        if (error)
            *error = message;
        m_participant.reset();
        return false;
    };
    if (isPublishing())
        return true;
    if (const auto problem = Ros2Names::namespaceProblem(m_settings.nameSpace))
        return fail(*problem);
    if (const auto problem = Ros2Names::frameProblem(m_settings.frameId))
        return fail(*problem);
    std::string why;
    const std::optional<Ros2DomainConfig> domain = Ros2DomainConfig::fromEnvironment(m_settings, &why);
    if (!domain)
        return fail(why);
    m_domainId = domain->domainId;
    m_reach = domain->reach;
    // Called on a DDS thread when a subscriber comes or goes: the publisher's thread recounts.
    auto matchesChanged = [this] {
        {
            std::lock_guard<std::mutex> lock(m_slotMutex);
            m_matchesChanged = true;
        }
        m_wake.notify_one();
    };
    m_participant = Ros2Participant::create(*domain, m_settings, matchesChanged, &why);
    if (!m_participant)
        return fail("domain " + std::to_string(m_domainId) + " (" + m_reach + "): " + why);
    {
        std::lock_guard<std::mutex> lock(m_slotMutex);
        m_stopping = false;
        m_matchesChanged = true;
    }
    m_thread = std::thread([this] { run(); });
    KESTRION_LOG_INFO(Category, "ROS 2 publisher on domain "
                                    << m_domainId << " (" << m_reach << "): /tf, /"
                                    << Ros2Names::plainNamespace(m_settings.nameSpace) << "/<tool>/pose, /"
                                    << Ros2Names::plainNamespace(m_settings.nameSpace)
                                    << "/fiducials, /diagnostics");
    return true;
}

void Ros2Publisher::serve(TrackingStream* stream) {
    std::lock_guard<std::mutex> lock(m_serveMutex);
    if (m_stream == stream)
        return;
    // Disconnecting waits until a running slot has returned, so no frame of the old stream
    // arrives afterwards.
    m_dataConnection.disconnect();
    if (m_stream)
        m_stream->releaseInstrumentStatus();
    m_stream = stream;
    if (stream) {
        stream->requestInstrumentStatus();
        m_dataConnection = stream->signalStreamData.connect(
            [this](std::shared_ptr<const StreamData> data) { onStreamData(data); });
    }
    {
        // The camera's status changes at once.
        std::lock_guard<std::mutex> slotLock(m_slotMutex);
        m_matchesChanged = true;
    }
    m_wake.notify_one();
}

void Ros2Publisher::stop() {
    serve(nullptr);
    if (m_thread.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_slotMutex);
            m_stopping = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }
    if (m_participant) {
        m_participant->waitForAcknowledgements(FinalAcknowledgementS);
        m_participant.reset();
        KESTRION_LOG_INFO(Category, "ROS 2 publisher stopped");
    }
    m_subscribers = 0;
    m_anyMatched = false;
    std::lock_guard<std::mutex> lock(m_slotMutex);
    m_slot.reset();
    m_frameWaiting = false;
}

void Ros2Publisher::onStreamData(const std::shared_ptr<const StreamData>& data) {
    std::shared_ptr<const StreamData> replaced; // released after the lock
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(m_slotMutex);
        replaced = std::exchange(m_slot, data);
        if (m_anyMatched.load(std::memory_order_relaxed)) {
            if (m_frameWaiting)
                m_framesSkipped.fetch_add(1, std::memory_order_relaxed);
            // A polling thread finds the frame by itself: no system call on the worker.
            wake = !m_frameWaiting && !m_polling;
            m_frameWaiting = true;
        }
    }
    // Without subscribers nobody waits for the frame: the thread looks at it at its next round.
    if (wake)
        m_wake.notify_one();
}

void Ros2Publisher::run() {
    const auto period = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
        m_settings.diagnosticsPeriodS > 0 ? m_settings.diagnosticsPeriodS : 1.0));
    Ros2FrameContent content;
    Ros2Diagnostics diagnostics(m_settings.nameSpace, period);
    std::shared_ptr<const StreamData> newest;
    std::size_t lastDiagnosticsSubscribers = 0;
    auto nextRound = Clock::now();
    Clock::time_point lastFrame{};
    bool polling = false;
    for (;;) {
        std::shared_ptr<const StreamData> frame;
        bool matchesChanged = false;
        bool stopping = false;
        {
            std::unique_lock<std::mutex> lock(m_slotMutex);
            m_polling = polling;
            const auto until = polling ? std::min(nextRound, Clock::now() + PollInterval) : nextRound;
            m_wake.wait_until(lock, until,
                              [this] { return m_stopping || m_frameWaiting || m_matchesChanged; });
            stopping = m_stopping;
            matchesChanged = std::exchange(m_matchesChanged, false);
            m_frameWaiting = false;
            frame = std::move(m_slot);
            m_slot.reset();
        }
        const auto now = Clock::now();
        if (matchesChanged) {
            m_anyMatched = m_participant->anyMatched();
            m_subscribers = m_participant->countSubscribers();
            const std::size_t diagnosticsSubscribers = m_participant->diagnosticsMatched();
            if (diagnosticsSubscribers > lastDiagnosticsSubscribers)
                diagnostics.resend();
            lastDiagnosticsSubscribers = diagnosticsSubscribers;
        }
        if (frame) {
            lastFrame = now;
            newest = frame;
            if (const auto tracking = findStreamData<TrackingStreamData>(frame)) {
                content.fill(*tracking, m_settings);
                m_participant->addTools(content.tools);
                if (m_anyMatched.load() && m_participant->write(content))
                    m_framesPublished.fetch_add(1, std::memory_order_relaxed);
            }
        }
        // While frames flow to a subscriber the thread polls the slot instead of being woken.
        polling = m_anyMatched.load() && now - lastFrame < PollingHold;
        const bool round = now >= nextRound;
        if (round)
            nextRound = now + std::min<Clock::duration>(period, HealthCheckInterval);
        if (frame || round || matchesChanged || stopping)
            publishDiagnostics(diagnostics, newest, now);
        if (stopping)
            return;
    }
}

void Ros2Publisher::publishDiagnostics(Ros2Diagnostics& diagnostics,
                                       const std::shared_ptr<const StreamData>& newest,
                                       Clock::time_point now) {
    // Not matched: nothing is built (a subscriber that comes gets the next round's).
    if (!m_participant->diagnosticsMatched())
        return;
    std::optional<StreamHealth::Snapshot> camera;
    std::string streamName;
    {
        std::lock_guard<std::mutex> lock(m_serveMutex);
        if (m_stream) {
            camera = m_stream->health().snapshot();
            streamName = m_stream->name();
        }
    }
    const auto tracking = camera && newest ? findStreamData<TrackingStreamData>(newest) : nullptr;
    Ros2Diagnostics::Counters counters{framesPublished(), framesSkipped(), subscribers()};
    if (auto statuses =
            diagnostics.update(camera ? &*camera : nullptr, streamName, tracking.get(), counters, now))
        m_participant->writeDiagnostics(*statuses, Time::utcMilliseconds() * 1000);
}

} // namespace Kestrion::Ros2
