#include "host/ros2/Ros2Diagnostics.h"

#include "host/ros2/Ros2Names.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

#include <cmath>
#include <cstdio>

namespace Kestrion::Ros2 {

namespace {

std::string milliseconds(StreamHealth::Clock::duration duration) {
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

std::uint8_t toolLevel(InstrumentStatusData::State state) {
    using State = InstrumentStatusData::State;
    switch (state) {
    case State::Tracked:
        return Ros2Diagnostics::Ok;
    case State::NotOnCamera:
        return Ros2Diagnostics::Error;
    case State::Inactive:
        return Ros2Diagnostics::Stale;
    default:
        return Ros2Diagnostics::Warn;
    }
}

} // namespace

Ros2Diagnostics::Ros2Diagnostics(std::string nameSpace, std::chrono::duration<double> period)
    : m_prefix(Ros2Names::plainNamespace(nameSpace) + ": ")
    , m_period(std::chrono::duration_cast<Clock::duration>(period)) {}

Ros2Diagnostics::Status Ros2Diagnostics::cameraStatus(const StreamHealth::Snapshot* camera,
                                                      const std::string& streamName,
                                                      const Counters& counters) const {
    Status status;
    status.name = m_prefix + "camera";
    status.hardwareId = streamName;
    if (!camera) {
        status.level = Stale;
        status.message = "no tracking stream";
        return status;
    }
    using State = StreamHealth::State;
    status.message = StreamHealth::stateName(camera->state);
    switch (camera->state) {
    case State::Delivering:
        status.level = Ok;
        break;
    case State::NotDelivering:
        status.level = Error;
        if (!camera->lastError.empty())
            status.message += ": " + camera->lastError;
        break;
    case State::Ended:
        status.level = Warn;
        if (!camera->endReason.empty())
            status.message += ": " + camera->endReason;
        break;
    case State::Stopped:
        status.level = Warn;
        break;
    }
    auto& v = status.values;
    v.emplace_back("data items", std::to_string(camera->dataItems));
    v.emplace_back("since last data (ms)", camera->sinceLastData ? milliseconds(*camera->sinceLastData) : "");
    v.emplace_back("outages", std::to_string(camera->outages));
    v.emplace_back("outage time (ms)", milliseconds(camera->outageTime));
    v.emplace_back("reopenings", std::to_string(camera->reopenings));
    v.emplace_back("last error", camera->lastError);
    v.emplace_back("silence threshold (ms)", milliseconds(camera->silenceThreshold));
    v.emplace_back("frames published", std::to_string(counters.framesPublished));
    v.emplace_back("frames skipped", std::to_string(counters.framesSkipped));
    v.emplace_back("subscribers", std::to_string(counters.subscribers));
    return status;
}

void Ros2Diagnostics::addToolStatuses(const TrackingStreamData& frame, bool delivering,
                                      std::vector<Status>& out) const {
    const auto* names = frame.component<InstrumentNames>();
    const auto* statuses = frame.component<InstrumentStatusData>();
    const auto* reference = frame.component<ReferencePoseData>();
    for (const TrackingInstrument& instrument : frame.instruments()) {
        Status status;
        status.name = m_prefix + Ros2Names::toolName(names, instrument.ID());
        status.hardwareId = instrument.ID();
        const InstrumentStatusData::Entry* entry = statuses ? statuses->find(instrument.ID()) : nullptr;
        const bool tracked = isInstrumentTracked(frame, instrument);
        std::string reason = entry ? entry->reason : "";
        if (!delivering) {
            // A held frame is a past frame: nothing is tracked while the camera does not deliver.
            status.level = Warn;
            status.message = "camera not delivering";
        } else if (entry) {
            status.level = toolLevel(entry->state);
            status.message = InstrumentStatusData::stateName(entry->state);
        } else {
            status.level = tracked ? Ok : Warn;
            status.message = tracked ? "tracked" : (instrument.active ? "not tracked" : "inactive");
        }
        if (delivering && tracked && reference && instrument.ID() != reference->referenceId() &&
            !reference->referenceTracked()) {
            status.level = Warn;
            status.message = "reference not seen";
        }
        status.values.emplace_back("reason", reason);
        if (entry && std::isfinite(entry->registrationErrorMm)) {
            char text[32];
            std::snprintf(text, sizeof text, "%.3f", entry->registrationErrorMm);
            status.values.emplace_back("registration error (mm)", text);
        }
        if (entry && entry->fiducialsExpected > 0)
            status.values.emplace_back("fiducials found", std::to_string(entry->fiducialsFound) + " of " +
                                                              std::to_string(entry->fiducialsExpected));
        out.push_back(std::move(status));
    }
}

std::optional<std::vector<Ros2Diagnostics::Status>>
Ros2Diagnostics::update(const StreamHealth::Snapshot* camera, const std::string& streamName,
                        const TrackingStreamData* frame, const Counters& counters, Clock::time_point now) {
    std::vector<Status> statuses;
    statuses.push_back(cameraStatus(camera, streamName, counters));
    if (frame)
        addToolStatuses(*frame, camera && camera->delivering(), statuses);
    // A change is a change of level or message; reasons and counters change with every frame (a
    // registration error in the reason) and go out with the periodic message.
    std::string signature;
    for (const Status& status : statuses)
        signature += status.name + '\x1f' + std::to_string(status.level) + '\x1f' + status.message + '\x1e';
    const bool due = !m_lastSent || now - *m_lastSent >= m_period;
    if (!due && signature == m_lastSignature)
        return std::nullopt;
    m_lastSent = now;
    m_lastSignature = std::move(signature);
    return statuses;
}

} // namespace Kestrion::Ros2
