#pragma once

#include "simulator/src/FrameTruth.h"
#include "simulator/src/GeometryRegistry.h"
#include "simulator/src/MarkerMatcher.h"

#include <ftkInterface.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion::Simulator {

class Device;
class FrameRecord;

/// The connection of one library handle to one device: the geometries registered through that
/// handle, marker matching with them, the tracking ids, and the truth of the last delivered
/// frame. As with the real library, geometries belong to the handle and are gone when it closes.
///
/// Thread safety: m_mutex guards everything here, because geometries are set or cleared on one
/// thread while another fetches frames through the same handle. Lock order: the device's mutex,
/// then this one.
class Session {
public:
    explicit Session(std::shared_ptr<Device> device);

    Device& device() { return *m_device; }
    const std::shared_ptr<Device>& devicePointer() const { return m_device; }

    ftkError setGeometry(const ftkGeometry& geometry, std::string& message);
    ftkError clearGeometry(std::uint32_t geometryId, std::string& message);

    /// Waits for and delivers a frame into the record (see ftkGetLastFrame).
    ftkError fetch(FrameRecord& record, std::uint32_t timeoutMS, std::string& message);

    /// Copy of the truth of the last frame delivered through this session; false before any.
    bool truth(FrameTruth& out) const;

private:
    void assignTrackingIds();

    std::shared_ptr<Device> m_device;
    mutable std::mutex m_mutex;
    GeometryRegistry m_geometries;
    MarkerMatcher m_matcher;
    std::vector<ftkMarker> m_markers;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> m_tracked; ///< (geometry id, tracking id)
    std::vector<std::pair<std::uint32_t, std::uint32_t>> m_trackedNext;
    std::uint32_t m_nextTrackingId = 1;
    FrameTruth m_truth;
    bool m_hasTruth = false;
};

} // namespace Kestrion::Simulator
