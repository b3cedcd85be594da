#include "simulator/src/FrameRecord.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <unordered_set>

namespace Kestrion::Simulator {

namespace {

/// Version written into every container's version/size field.
constexpr std::uint32_t ContainerVersion = 1;

// The set of live records. Guarded because records are created, looked up and deleted from any
// thread (a fetch on one thread while another opens or closes its own record).
std::mutex& registryMutex() {
    static std::mutex mutex;
    return mutex;
}

std::unordered_set<const ftkFrameQuery*>& registry() {
    static std::unordered_set<const ftkFrameQuery*> records;
    return records;
}

/// Copies up to the capacity of `to`; returns the number copied. The record's fields are packed,
/// so counts and statuses are assigned by the caller rather than written through references.
template <typename T>
std::uint32_t copyLimited(const std::vector<T>& from, std::vector<T>& to) {
    const std::size_t n = std::min(from.size(), to.size());
    if (n > 0) {
        std::memcpy(static_cast<void*>(to.data()), from.data(), n * sizeof(T));
    }
    return static_cast<std::uint32_t>(n);
}

template <typename T>
ftkQueryStatus overflow(const std::vector<T>& from, const std::vector<T>& to) {
    return from.size() > to.size() ? ftkQueryStatus::QS_ERR_OVERFLOW : ftkQueryStatus::QS_OK;
}

template <typename T>
ftkVersionSize versionSize(const std::vector<T>& container) {
    return ftkVersionSize{ContainerVersion, static_cast<std::uint32_t>(container.size() * sizeof(T))};
}

template <typename T>
T* dataOrNull(std::vector<T>& container) {
    return container.empty() ? nullptr : container.data();
}

} // namespace

FrameRecord::FrameRecord() {
    m_query.internalData = this;
    m_query.imageHeaderStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    m_query.eventsStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    m_query.imageLeftStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    m_query.imageRightStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    m_query.rawDataLeftStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    m_query.rawDataRightStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    m_query.threeDFiducialsStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    m_query.markersStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
}

ftkFrameQuery* FrameRecord::create() {
    auto* record = new FrameRecord();
    std::lock_guard<std::mutex> lock(registryMutex());
    registry().insert(&record->m_query);
    return &record->m_query;
}

FrameRecord* FrameRecord::find(const ftkFrameQuery* query) {
    if (query == nullptr) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(registryMutex());
    if (registry().count(query) == 0) {
        return nullptr;
    }
    return static_cast<FrameRecord*>(query->internalData);
}

bool FrameRecord::destroy(ftkFrameQuery* query) {
    FrameRecord* record = nullptr;
    {
        std::lock_guard<std::mutex> lock(registryMutex());
        if (query == nullptr || registry().erase(query) == 0) {
            return false;
        }
        record = static_cast<FrameRecord*>(query->internalData);
    }
    delete record;
    return true;
}

std::size_t FrameRecord::liveCount() {
    std::lock_guard<std::mutex> lock(registryMutex());
    return registry().size();
}

void FrameRecord::setOptions(bool pixels, std::uint32_t events, std::uint32_t rawLeft, std::uint32_t rawRight,
                             std::uint32_t fiducials, std::uint32_t markers) {
    m_eventStorage.assign(events, ftkEvent{});
    m_events.assign(events, nullptr);
    for (std::uint32_t i = 0; i < events; ++i) {
        m_events[i] = &m_eventStorage[i];
    }
    m_rawLeft.assign(rawLeft, ftkRawData{});
    m_rawRight.assign(rawRight, ftkRawData{});
    m_fiducials.assign(fiducials, ftk3DFiducial{});
    m_markers.assign(markers, ftkMarker{});
    m_pixels = pixels;
    m_images[0].clear();
    m_images[1].clear();
    m_header = ftkImageHeader{};

    ftkFrameQuery& q = m_query;
    q.imageHeader = &m_header;
    q.imageHeaderVersionSize = ftkVersionSize{ContainerVersion, sizeof(ftkImageHeader)};
    q.imageHeaderStat = ftkQueryStatus::QS_OK;
    q.events = dataOrNull(m_events);
    q.eventsVersionSize = versionSize(m_eventStorage);
    q.eventsCount = 0;
    q.eventsStat = ftkQueryStatus::QS_OK;
    q.imageLeftPixels = nullptr;
    q.imageRightPixels = nullptr;
    q.imageLeftVersionSize = ftkVersionSize{ContainerVersion, 0};
    q.imageRightVersionSize = ftkVersionSize{ContainerVersion, 0};
    q.imageLeftStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    q.imageRightStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    q.rawDataLeft = dataOrNull(m_rawLeft);
    q.rawDataLeftVersionSize = versionSize(m_rawLeft);
    q.rawDataLeftCount = 0;
    q.rawDataLeftStat = ftkQueryStatus::QS_OK;
    q.rawDataRight = dataOrNull(m_rawRight);
    q.rawDataRightVersionSize = versionSize(m_rawRight);
    q.rawDataRightCount = 0;
    q.rawDataRightStat = ftkQueryStatus::QS_OK;
    q.threeDFiducials = dataOrNull(m_fiducials);
    q.threeDFiducialsVersionSize = versionSize(m_fiducials);
    q.threeDFiducialsCount = 0;
    q.threeDFiducialsStat = ftkQueryStatus::QS_OK;
    q.markers = dataOrNull(m_markers);
    q.markersVersionSize = versionSize(m_markers);
    q.markersCount = 0;
    q.markersStat = ftkQueryStatus::QS_OK;

    m_hasDelivery = false;
    m_lastSerial = 0;
    m_lastIndex = 0;
}

void FrameRecord::fill(const FrameData& frame, const std::vector<ftkMarker>& markers,
                       const DeliveryFaults& faults, bool withImages) {
    ftkFrameQuery& q = m_query;
    if (q.imageHeader != nullptr) {
        m_header.timestampUS = frame.timestampUS;
        m_header.desynchroUS = frame.replayed ? frame.desynchroUS : 0;
        m_header.counter = frame.replayed ? frame.counter : static_cast<std::uint32_t>(frame.index);
        m_header.format = ftkPixelFormat::GRAY8;
        m_header.width = frame.width;
        m_header.height = frame.height;
        m_header.imageStrideInBytes = frame.width;
        q.imageHeaderStat = ftkQueryStatus::QS_OK;
    }
    q.eventsCount = 0;

    q.rawDataLeftCount = copyLimited(frame.rawLeft, m_rawLeft);
    q.rawDataLeftStat = overflow(frame.rawLeft, m_rawLeft);
    q.rawDataRightCount = copyLimited(frame.rawRight, m_rawRight);
    q.rawDataRightStat = overflow(frame.rawRight, m_rawRight);
    q.threeDFiducialsCount = copyLimited(frame.fiducials, m_fiducials);
    q.threeDFiducialsStat = overflow(frame.fiducials, m_fiducials);
    q.markersCount = copyLimited(markers, m_markers);
    q.markersStat = overflow(markers, m_markers);
    if (faults.overrideMarkers) {
        q.markersStat = faults.markersStatus;
    }
    if (frame.replayed) {
        replayStatuses(frame, q);
    }

    if (!m_pixels) {
        // No pixel buffers were reserved for this record.
        q.imageLeftStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
        q.imageRightStat = ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE;
    } else if (!withImages) {
        // Images are not sent with this frame (image sending is off): the buffers are untouched.
        q.imageLeftStat = ftkQueryStatus::QS_WAR_SKIPPED;
        q.imageRightStat = ftkQueryStatus::QS_WAR_SKIPPED;
    } else {
        if (frame.hasImages) {
            m_images[0].assign(frame.imageLeft);
            m_images[1].assign(frame.imageRight);
        }
        q.imageLeftPixels = m_images[0].data();
        q.imageRightPixels = m_images[1].data();
        q.imageLeftVersionSize =
            ftkVersionSize{ContainerVersion, static_cast<std::uint32_t>(m_images[0].size())};
        q.imageRightVersionSize =
            ftkVersionSize{ContainerVersion, static_cast<std::uint32_t>(m_images[1].size())};
        q.imageLeftStat = ftkQueryStatus::QS_OK;
        q.imageRightStat = ftkQueryStatus::QS_OK;
    }
}

void FrameRecord::replayStatuses(const FrameData& frame, ftkFrameQuery& q) {
    // A status the camera reported then (a skipped or overflowing container) is reported again;
    // an overflow of this record's own capacities stays.
    const auto replay = [](ftkQueryStatus& status, std::int8_t recorded) {
        if (status == ftkQueryStatus::QS_OK && recorded != 0) {
            status = static_cast<ftkQueryStatus>(recorded);
        }
    };
    replay(q.rawDataLeftStat, frame.recordedStatuses[3]);
    replay(q.rawDataRightStat, frame.recordedStatuses[4]);
    replay(q.threeDFiducialsStat, frame.recordedStatuses[5]);
    replay(q.markersStat, frame.recordedStatuses[6]);
}

void FrameRecord::markDelivered(std::uint64_t serial, std::uint64_t index) {
    m_hasDelivery = true;
    m_lastSerial = serial;
    m_lastIndex = index;
}

} // namespace Kestrion::Simulator
