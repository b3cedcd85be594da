#pragma once

#include "host/stream/DataComponent.h"

#include <Eigen/Core>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kestrion {

/// The raw 3D fiducials of a tracking frame, as parallel lists with one entry per fiducial:
/// - position (millimetres, camera frame);
/// - id hash: identifies the instrument (or the fiducial) the fiducial is attributed to;
/// - instrument index: position of the owning instrument in the frame's instrument list, or
///   NoInstrument;
/// - the quality lists: probability (0..1), epipolar error (pixels), triangulation error (mm);
/// - pixel counts of the fiducial's detection in the left and the right image.
/// addFiducial() fills every list at once; the lists can also be filled one by one through their
/// non-const accessors.
class TrackingInstrumentFiducialsData : public DataComponent {
public:
    static constexpr std::uint32_t NoInstrument = 0xFFFFFFFFu;

    void addFiducial(const Eigen::Vector3d& position, std::size_t idHash, std::uint32_t instrumentIndex,
                     double probability, double epipolarError, double triangulationError,
                     std::uint32_t leftPixelCount, std::uint32_t rightPixelCount);
    void reserve(std::size_t count);
    void clear();

    /// Number of fiducials: the length of the position list.
    std::size_t size() const { return m_positions.size(); }
    bool empty() const { return m_positions.empty(); }

    /// True when the probability, epipolar-error and triangulation-error lists each hold exactly
    /// one value per fiducial (so also for a frame without fiducials); false when any of them is
    /// missing values or has more values than there are fiducials.
    bool hasQualities() const;

    const std::vector<Eigen::Vector3d>& positions() const { return m_positions; }
    const std::vector<std::size_t>& idHashes() const { return m_idHashes; }
    const std::vector<std::uint32_t>& instrumentIndices() const { return m_instrumentIndices; }
    const std::vector<double>& probabilities() const { return m_probabilities; }
    const std::vector<double>& epipolarErrors() const { return m_epipolarErrors; }
    const std::vector<double>& triangulationErrors() const { return m_triangulationErrors; }
    const std::vector<std::uint32_t>& leftPixelCounts() const { return m_leftPixelCounts; }
    const std::vector<std::uint32_t>& rightPixelCounts() const { return m_rightPixelCounts; }

    std::vector<Eigen::Vector3d>& positions() { return m_positions; }
    std::vector<std::size_t>& idHashes() { return m_idHashes; }
    std::vector<std::uint32_t>& instrumentIndices() { return m_instrumentIndices; }
    std::vector<double>& probabilities() { return m_probabilities; }
    std::vector<double>& epipolarErrors() { return m_epipolarErrors; }
    std::vector<double>& triangulationErrors() { return m_triangulationErrors; }
    std::vector<std::uint32_t>& leftPixelCounts() { return m_leftPixelCounts; }
    std::vector<std::uint32_t>& rightPixelCounts() { return m_rightPixelCounts; }

private:
    std::vector<Eigen::Vector3d> m_positions;
    std::vector<std::size_t> m_idHashes;
    std::vector<std::uint32_t> m_instrumentIndices;
    std::vector<double> m_probabilities;
    std::vector<double> m_epipolarErrors;
    std::vector<double> m_triangulationErrors;
    std::vector<std::uint32_t> m_leftPixelCounts;
    std::vector<std::uint32_t> m_rightPixelCounts;
};

} // namespace Kestrion
