#include "atracsys/optimization/AtracsysGeometryRecording.h"

#include "host/core/Log.h"

namespace Kestrion {

void AtracsysGeometryRecording::clear(std::size_t expectedFrames) {
    m_frames.clear();
    m_frameErrors.clear();
    m_fiducialErrors.clear();
    m_frames.reserve(expectedFrames);
    m_frameErrors.reserve(expectedFrames);
    m_fiducialErrors.reserve(expectedFrames);
}

void AtracsysGeometryRecording::append(const Points& points, double frameError,
                                       const std::vector<double>& fiducialErrors) {
    m_frames.push_back(points);
    m_frameErrors.push_back(frameError);
    m_fiducialErrors.push_back(fiducialErrors);
}

void AtracsysGeometryRecording::scale(double factor) {
    for (Points& frame : m_frames)
        for (Eigen::Vector3d& point : frame)
            point *= factor;
}

std::size_t AtracsysGeometryRecording::bestFrame() const {
    std::size_t best = 0;
    for (std::size_t i = 1; i < m_frameErrors.size(); ++i)
        if (m_frameErrors[i] < m_frameErrors[best])
            best = i;
    return best;
}

std::size_t AtracsysGeometryRecording::assignSlots(const Points& positions, const std::vector<double>& errors,
                                                   double radius, Points& slotPoints,
                                                   std::vector<double>& slotErrors,
                                                   std::vector<char>& filled) const {
    if (m_frames.empty()) {
        slotPoints = positions;
        slotErrors = errors;
        filled.assign(positions.size(), 1);
        return positions.size();
    }

    const Points& last = m_frames.back();
    const std::size_t slots = last.size();
    slotPoints.assign(slots, Eigen::Vector3d::Zero());
    slotErrors.assign(slots, 0.0);
    filled.assign(slots, 0);
    for (std::size_t i = 0; i < positions.size(); ++i) {
        for (std::size_t j = 0; j < slots; ++j) {
            if ((positions[i] - last[j]).norm() >= radius)
                continue;
            if (filled[j])
                KESTRION_LOG_ERROR("", "POS " << j << " ) already found : " << slotPoints[j].transpose()
                                              << " - now : " << positions[i].transpose());
            slotPoints[j] = positions[i];
            slotErrors[j] = i < errors.size() ? errors[i] : 0.0;
            filled[j] = 1;
        }
    }
    std::size_t count = 0;
    for (char f : filled)
        count += f ? 1 : 0;
    return count;
}

} // namespace Kestrion
