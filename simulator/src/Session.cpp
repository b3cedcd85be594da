#include "simulator/src/Session.h"

#include "simulator/src/Device.h"
#include "simulator/src/ErrorCodes.h"
#include "simulator/src/FrameRecord.h"

#include <algorithm>

namespace Kestrion::Simulator {

Session::Session(std::shared_ptr<Device> device)
    : m_device(std::move(device)) {}

ftkError Session::setGeometry(const ftkGeometry& geometry, std::string& message) {
    const std::string device = ErrorCodes::serialText(m_device->serial());
    if (auto refusal = m_device->geometryRefusal(geometry.geometryId, false)) {
        message = "Geometry " + std::to_string(geometry.geometryId) + " refused by device " + device +
                  " (simulated fault)";
        return *refusal;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const ftkError status = m_geometries.add(geometry);
    if (status == ftkError::FTK_ERR_GEOM_PTS) {
        message = "Geometry " + std::to_string(geometry.geometryId) + " has " +
                  std::to_string(geometry.pointsCount) + " points; a geometry needs 3 to " +
                  std::to_string(FTK_MAX_FIDUCIALS) + " points with finite coordinates";
    } else if (status == ftkError::FTK_ERR_GEOM_REGISTERED) {
        message = "Geometry " + std::to_string(geometry.geometryId) + " is already registered on device " +
                  device + "; clear it first";
    }
    return status;
}

ftkError Session::clearGeometry(std::uint32_t geometryId, std::string& message) {
    const std::string device = ErrorCodes::serialText(m_device->serial());
    if (auto refusal = m_device->geometryRefusal(geometryId, true)) {
        message = "Clearing geometry " + std::to_string(geometryId) + " refused by device " + device +
                  " (simulated fault)";
        return *refusal;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const ftkError status = m_geometries.remove(geometryId);
    if (status == ftkError::FTK_WAR_GEOM_ID) {
        message = "Geometry " + std::to_string(geometryId) + " is not registered on device " + device;
    }
    return status;
}

ftkError Session::fetch(FrameRecord& record, std::uint32_t timeoutMS, std::string& message) {
    const bool sameDevice = record.hasDelivery() && record.lastSerial() == m_device->serial();
    std::uint64_t index = 0;
    DeliveryFaults faults;
    const ftkError admitted =
        m_device->admitFetch(sameDevice, record.lastIndex(), timeoutMS, index, faults, message);
    if (admitted != ftkError::FTK_OK) {
        return admitted;
    }

    auto deviceLock = m_device->lock();
    bool withImages = false;
    const FrameData* produced = nullptr;
    const ftkError status = m_device->frameLocked(index, record.wantsPixels(), produced, withImages, message);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    const FrameData& frame = *produced;
    const double tolerance = m_device->matchingToleranceLocked();
    std::lock_guard<std::mutex> lock(m_mutex);
    if (frame.replayed && !m_device->rematchesReplay()) {
        m_markers.assign(frame.recordedMarkers.begin(), frame.recordedMarkers.end());
    } else {
        m_matcher.match(frame.fiducials, m_geometries.geometries(), tolerance, m_markers);
        assignTrackingIds();
    }
    m_truth = m_device->truthLocked();
    m_hasTruth = true;
    if (withImages && !frame.hasImages) {
        m_device->drawImagesLocked(record.image(0), record.image(1));
    }
    record.fill(frame, m_markers, faults, withImages);
    record.markDelivered(m_device->serial(), index);
    return ftkError::FTK_OK;
}

void Session::assignTrackingIds() {
    // A marker keeps its tracking id while it is seen in consecutive frames.
    m_trackedNext.clear();
    for (ftkMarker& marker : m_markers) {
        const auto it = std::find_if(m_tracked.begin(), m_tracked.end(),
                                     [&](const auto& entry) { return entry.first == marker.geometryId; });
        marker.id = it != m_tracked.end() ? it->second : m_nextTrackingId++;
        m_trackedNext.emplace_back(marker.geometryId, marker.id);
    }
    m_tracked.swap(m_trackedNext);
}

bool Session::truth(FrameTruth& out) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_hasTruth) {
        return false;
    }
    out = m_truth;
    return true;
}

} // namespace Kestrion::Simulator
