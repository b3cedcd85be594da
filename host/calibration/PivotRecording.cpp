#include "host/calibration/PivotRecording.h"

#include "host/stream/TrackingInstrumentFiducialsData.h"

namespace Kestrion {

namespace {

// As in the geometry refinement: a quality above 0.8 is a registration error under 2 mm.
constexpr double MinQuality = 0.8;

} // namespace

PivotRecording::PivotRecording(std::string instrumentId, std::size_t fiducialCount, std::size_t frames)
    : m_instrumentId(std::move(instrumentId))
    , m_fiducialCount(fiducialCount)
    , m_target(frames) {}

void PivotRecording::start() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_poses.clear();
        m_poses.reserve(m_target); // no reallocation on the stream's thread while recording
    }
    m_accepted.store(0);
    m_notTracked.store(0);
    m_incomplete.store(0);
    m_recording.store(true);
}

void PivotRecording::add(const TrackingStreamData& frame) {
    if (!m_recording.load())
        return;
    const auto& instruments = frame.instruments();
    std::size_t index = 0;
    while (index < instruments.size() && instruments[index].ID() != m_instrumentId)
        ++index;
    if (index == instruments.size() || !instruments[index].active ||
        instruments[index].quality <= MinQuality) {
        m_notTracked.fetch_add(1);
        return;
    }
    if (!complete(frame, index)) {
        m_incomplete.fetch_add(1);
        return;
    }
    std::size_t accepted = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_recording.load()) // stopped meanwhile: the caller may be reading the poses
            return;
        m_poses.push_back(instruments[index].matrix);
        accepted = m_poses.size();
    }
    m_accepted.store(accepted);
    if (m_target != 0 && accepted >= m_target)
        m_recording.store(false);
}

bool PivotRecording::complete(const TrackingStreamData& frame, std::size_t instrumentIndex) const {
    if (m_fiducialCount == 0)
        return true;
    const auto* fiducials = frame.component<TrackingInstrumentFiducialsData>();
    if (!fiducials)
        return false;
    std::size_t seen = 0;
    for (std::uint32_t owner : fiducials->instrumentIndices())
        if (owner == instrumentIndex)
            ++seen;
    return seen == m_fiducialCount;
}

std::vector<Eigen::Matrix4d> PivotRecording::poses() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_poses;
}

} // namespace Kestrion
