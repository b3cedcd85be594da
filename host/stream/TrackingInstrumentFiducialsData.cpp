#include "host/stream/TrackingInstrumentFiducialsData.h"

namespace Kestrion {

void TrackingInstrumentFiducialsData::addFiducial(const Eigen::Vector3d& position, std::size_t idHash,
                                                  std::uint32_t instrumentIndex, double probability,
                                                  double epipolarError, double triangulationError,
                                                  std::uint32_t leftPixelCount,
                                                  std::uint32_t rightPixelCount) {
    m_positions.push_back(position);
    m_idHashes.push_back(idHash);
    m_instrumentIndices.push_back(instrumentIndex);
    m_probabilities.push_back(probability);
    m_epipolarErrors.push_back(epipolarError);
    m_triangulationErrors.push_back(triangulationError);
    m_leftPixelCounts.push_back(leftPixelCount);
    m_rightPixelCounts.push_back(rightPixelCount);
}

void TrackingInstrumentFiducialsData::reserve(std::size_t count) {
    m_positions.reserve(count);
    m_idHashes.reserve(count);
    m_instrumentIndices.reserve(count);
    m_probabilities.reserve(count);
    m_epipolarErrors.reserve(count);
    m_triangulationErrors.reserve(count);
    m_leftPixelCounts.reserve(count);
    m_rightPixelCounts.reserve(count);
}

void TrackingInstrumentFiducialsData::clear() {
    m_positions.clear();
    m_idHashes.clear();
    m_instrumentIndices.clear();
    m_probabilities.clear();
    m_epipolarErrors.clear();
    m_triangulationErrors.clear();
    m_leftPixelCounts.clear();
    m_rightPixelCounts.clear();
}

bool TrackingInstrumentFiducialsData::hasQualities() const {
    const std::size_t n = m_positions.size();
    return m_probabilities.size() == n && m_epipolarErrors.size() == n && m_triangulationErrors.size() == n;
}

} // namespace Kestrion
