#include "simulator/src/ReplaySource.h"

#include <algorithm>

namespace Kestrion::Simulator {

namespace {

ftkMarker toMarker(const Recording::Marker& r) {
    ftkMarker m{};
    m.status = ftkStatus(r.status);
    m.id = r.trackingId;
    m.geometryId = r.geometryId;
    m.geometryPresenceMask = r.presenceMask;
    for (std::size_t k = 0; k < FTK_MAX_FIDUCIALS; ++k)
        m.fiducialCorresp[k] = r.correspondences[k];
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t col = 0; col < 3; ++col)
            m.rotation[row][col] = r.rotation[row * 3 + col];
    for (std::size_t k = 0; k < 3; ++k)
        m.translationMM[k] = r.translationMM[k];
    m.registrationErrorMM = r.registrationErrorMM;
    return m;
}

ftkRawData toRaw(const Recording::RawDetection& r) {
    ftkRawData d{};
    d.centerXPixels = r.centerXPixels;
    d.centerYPixels = r.centerYPixels;
    d.status = ftkStatus(r.status);
    d.pixelsCount = r.pixelsCount;
    d.width = r.width;
    d.height = r.height;
    return d;
}

} // namespace

std::unique_ptr<ReplaySource> ReplaySource::open(const std::string& path, Markers markers, std::string& error,
                                                 std::string& warning) {
    std::unique_ptr<ReplaySource> source(new ReplaySource());
    source->m_path = path;
    source->m_markers = markers;
    Recording::RecordingReader& reader = source->m_reader;
    if (!reader.open(path)) {
        error = reader.error();
        return nullptr;
    }
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    for (;;) {
        const std::uint64_t at = reader.position();
        // Indexing checks every record but leaves the images compressed until their frame plays.
        const auto next = reader.next(source->m_frame, false);
        if (next == Recording::RecordingReader::Next::Failed) {
            error = reader.error();
            return nullptr;
        }
        if (next == Recording::RecordingReader::Next::End)
            break;
        source->m_offsets.push_back(at);
        const std::uint64_t stamp = source->m_frame.header.timestampUS;
        (source->m_offsets.size() == 1 ? first : last) = stamp;
        // A clock that went back (or a frame without a header) keeps the frame after the one before.
        const std::uint64_t previous = source->m_timesUS.empty() ? 0 : source->m_timesUS.back();
        source->m_timesUS.push_back(std::max(previous, stamp > first ? stamp - first : 0));
    }
    if (source->m_offsets.empty()) {
        error = "recording " + path + ": holds no frame";
        return nullptr;
    }
    if (reader.cutShort())
        warning = "recording " + path + ": cut short" +
                  (reader.error().empty() ? "" : " (" + reader.error() + ")") + "; replaying its " +
                  std::to_string(source->m_offsets.size()) + " whole frames";
    const std::size_t frames = source->m_offsets.size();
    // The device's frame period, from its own clock; a recording too short to tell runs at 60 Hz.
    source->m_rateHz = frames > 1 && last > first ? double(frames - 1) * 1e6 / double(last - first) : 60.0;
    return source;
}

std::uint64_t ReplaySource::frameAt(std::uint64_t elapsedUS) const {
    const auto after = std::upper_bound(m_timesUS.begin(), m_timesUS.end(), elapsedUS);
    return after == m_timesUS.begin() ? 0 : static_cast<std::uint64_t>(after - m_timesUS.begin() - 1);
}

bool ReplaySource::load(std::uint64_t index, FrameData& frame, std::string& error) {
    frame.index = index;
    frame.replayed = true;
    if (index >= m_offsets.size() || !m_reader.readFrameAt(m_offsets[index], index, m_frame)) {
        error = index >= m_offsets.size() ? "recording " + m_path + ": no frame " + std::to_string(index)
                                          : m_reader.error();
        frame.rawLeft.clear();
        frame.rawRight.clear();
        frame.fiducials.clear();
        frame.recordedMarkers.clear();
        frame.hasImages = false;
        return false;
    }
    const Recording::Frame& r = m_frame;
    frame.timestampUS = r.header.timestampUS;
    frame.counter = r.header.counter;
    frame.desynchroUS = r.header.desynchroUS;
    for (std::size_t i = 0; i < frame.recordedStatuses.size(); ++i)
        frame.recordedStatuses[i] = r.statuses[i];
    frame.rawLeft.resize(r.rawLeft.size());
    std::transform(r.rawLeft.begin(), r.rawLeft.end(), frame.rawLeft.begin(), toRaw);
    frame.rawRight.resize(r.rawRight.size());
    std::transform(r.rawRight.begin(), r.rawRight.end(), frame.rawRight.begin(), toRaw);
    frame.fiducials.resize(r.fiducials.size());
    for (std::size_t i = 0; i < r.fiducials.size(); ++i) {
        const Recording::Fiducial& d = r.fiducials[i];
        ftk3DFiducial& f = frame.fiducials[i];
        f = ftk3DFiducial{};
        f.status = ftkStatus(d.status);
        f.leftIndex = d.leftIndex;
        f.rightIndex = d.rightIndex;
        f.positionMM = {d.positionMM[0], d.positionMM[1], d.positionMM[2]};
        f.epipolarErrorPixels = d.epipolarErrorPixels;
        f.triangulationErrorMM = d.triangulationErrorMM;
        f.probability = d.probability;
    }
    frame.recordedMarkers.resize(r.markers.size());
    std::transform(r.markers.begin(), r.markers.end(), frame.recordedMarkers.begin(), toMarker);
    frame.width = r.header.width;
    frame.height = r.header.height;
    frame.hasImages = r.hasImages;
    if (r.hasImages) {
        frame.imageLeft.assign(r.imageLeft.begin(), r.imageLeft.end());
        frame.imageRight.assign(r.imageRight.begin(), r.imageRight.end());
    }
    return true;
}

} // namespace Kestrion::Simulator
