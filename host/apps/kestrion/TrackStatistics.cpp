#include "host/apps/kestrion/TrackStatistics.h"

#include "host/apps/kestrion/TrackReferenceColumns.h"
#include "host/apps/kestrion/TrackTipColumns.h"

#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

#include <cstdio>
#include <sstream>

namespace Kestrion::Cli {

void TrackStatistics::add(const TrackingStreamData& frame, const DeviceFrameInfo* device) {
    ++m_framesReceived;
    if (device) {
        if (m_deviceType.empty()) {
            m_deviceType = device->deviceType();
            m_serialNumber = device->serialNumber();
        }
        if (m_lastCounter)
            m_framesDropped += DeviceFrameInfo::framesBetween(*m_lastCounter, device->frameCounter());
        m_lastCounter = device->frameCounter();
    }
    bool anyTracked = false;
    const InstrumentStatusData* status = frame.component<InstrumentStatusData>();
    const auto* names = frame.component<InstrumentNames>();
    const auto* poses = frame.component<ReferencePoseData>();
    m_anyReference = m_anyReference || poses;
    for (const TrackingInstrument& instrument : frame.instruments()) {
        auto [it, inserted] = m_instruments.try_emplace(instrument.ID());
        if (inserted)
            m_order.push_back(instrument.ID());
        // The user's name when there is one, else the stream's own name of the instrument.
        const std::string userName = names ? names->userName(instrument.ID()) : std::string();
        it->second.name = userName.empty() ? instrument.id.name : userName;
        if (poses) {
            it->second.referenceCell = TrackReferenceColumns::tableCell(&frame, instrument.ID());
            it->second.referenceNote = TrackReferenceColumns::referenceNote(frame, instrument.ID());
        }
        it->second.trackedNow = isInstrumentTracked(frame, instrument);
        const InstrumentStatusData::Entry* entry = status ? status->find(instrument.ID()) : nullptr;
        it->second.status = entry ? entry->reason : std::string();
        if (it->second.trackedNow) {
            anyTracked = true;
            it->second.last = instrument;
            it->second.lastSeenMs = frame.arrivalTimestamp();
            it->second.tip = TrackTipColumns::tipOf(frame, instrument.ID());
            m_anyTip = m_anyTip || it->second.tip.has_value();
        }
    }
    if (anyTracked)
        ++m_framesWithPose;
}

std::string TrackStatistics::table(std::uint64_t nowMs, double elapsedS, double rateHz,
                                   const StreamHealth::Snapshot& health) const {
    std::ostringstream out;
    char line[256];
    if (hasDevice())
        std::snprintf(line, sizeof line, "Device: %s, serial 0x%016llx", m_deviceType.c_str(),
                      static_cast<unsigned long long>(m_serialNumber));
    else
        std::snprintf(line, sizeof line, "Device: (no frame yet)");
    out << line << "\n";
    std::snprintf(line, sizeof line, "Frames: %llu received, %llu dropped, %.1f Hz, running %.0f s",
                  static_cast<unsigned long long>(m_framesReceived),
                  static_cast<unsigned long long>(m_framesDropped), rateHz, elapsedS);
    out << line << "\n";
    // A camera that does not deliver holds no instrument as tracked: its last frame is a past one.
    const bool delivering = health.delivering();
    const char* notDelivering =
        health.state == StreamHealth::State::Ended ? "the recording has ended" : "camera not delivering";
    if (!delivering) {
        if (health.state == StreamHealth::State::Ended)
            std::snprintf(line, sizeof line, "Camera: the recording has ended");
        else if (health.sinceLastData)
            std::snprintf(line, sizeof line, "Camera: not delivering, last frame %.1f s ago",
                          std::chrono::duration<double>(*health.sinceLastData).count());
        else
            std::snprintf(line, sizeof line, "Camera: not delivering, no frame yet");
        out << line << "\n";
    }
    std::snprintf(line, sizeof line, "%-16s %-20s %10s %10s %10s %8s %10s", "Instrument", "Name", "x [mm]",
                  "y [mm]", "z [mm]", "Quality", "Last seen");
    out << line << (m_anyTip ? TrackTipColumns::tableHeader() : "")
        << (m_anyReference ? TrackReferenceColumns::tableHeader() : "") << "  Status\n";
    for (const std::string& id : m_order) {
        const InstrumentState& state = m_instruments.at(id);
        char age[32] = "never";
        if (state.lastSeenMs != 0)
            std::snprintf(age, sizeof age, "%.1f s ago",
                          nowMs > state.lastSeenMs ? static_cast<double>(nowMs - state.lastSeenMs) / 1000.0
                                                   : 0.0);
        // A pose is shown only while the instrument is tracked: an old one would look current.
        const bool tracked = state.trackedNow && delivering;
        if (tracked) {
            const Eigen::Vector3d t = state.last.translation();
            std::snprintf(line, sizeof line, "%-16s %-20s %10.2f %10.2f %10.2f %8.3f %10s", id.c_str(),
                          state.name.c_str(), t.x(), t.y(), t.z(), state.last.quality, age);
        } else {
            std::snprintf(line, sizeof line, "%-16s %-20s %10s %10s %10s %8s %10s", id.c_str(),
                          state.name.c_str(), "-", "-", "-", "-", age);
        }
        out << line;
        // The tip, like the pose, only while tracked; before the status, whose text is free.
        if (m_anyTip)
            out << TrackTipColumns::tableCell(tracked ? state.tip : std::nullopt);
        if (m_anyReference)
            out << (delivering ? state.referenceCell : TrackReferenceColumns::tableCell(nullptr, id));
        if (!delivering)
            out << "  " << notDelivering;
        else if (!state.status.empty())
            out << "  " << state.status << (state.referenceNote.empty() ? "" : "; " + state.referenceNote);
        out << "\n";
    }
    return out.str();
}

} // namespace Kestrion::Cli
