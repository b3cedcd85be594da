#pragma once

#include "simulator/src/ImageRenderer.h"
#include "simulator/src/StereoCamera.h"

#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// Pairs left and right detections into 3D fiducials.
///
/// A left and a right blob may form a fiducial when the right one lies within the epipolar
/// tolerance of the left one's epipolar line and their rays meet in front of the cameras. Blobs
/// on nearly the same image row can pair crosswise and make ghost fiducials, as on a real camera.
/// Competing candidates (connected through shared blobs) are resolved together: the choice
/// forms the most pairs, then the most pairs inside the working volume, then the pairs whose
/// epipolar errors and apparent blob sizes agree best with their triangulated depth.
class StereoMatcher {
public:
    struct Result {
        std::uint32_t left;
        std::uint32_t right;
        std::uint32_t candidatesOfLeft; ///< Candidate pairs the left blob had (for the probability).
    };

    /// Largest group of competing candidates resolved exhaustively; larger ones are resolved greedily.
    static constexpr std::size_t MaxExhaustiveGroup = 12;

    StereoMatcher(const StereoCamera& camera, const DeviceModel& model);

    /// Pairs (sorted by left index) for the given blobs.
    void match(const std::vector<Blob>& left, const std::vector<Blob>& right, double epipolarTolerancePx,
               std::vector<Result>& pairs);

private:
    struct Candidate {
        std::uint32_t left;
        std::uint32_t right;
        bool inVolume;
        double cost;
    };

    std::uint32_t root(std::uint32_t node);
    void resolveGroup();
    void search(std::size_t next, int pairs, int inVolume, double cost);

    const StereoCamera& m_camera;
    const DeviceModel& m_model;

    // Scratch reused from frame to frame.
    std::vector<Candidate> m_candidates;
    std::vector<std::uint32_t> m_parent;
    std::vector<std::uint32_t> m_candidatesPerLeft;
    std::vector<std::size_t> m_group;
    std::vector<std::size_t> m_order;
    std::vector<std::uint32_t> m_roots;
    std::vector<char> m_usedLeft;
    std::vector<char> m_usedRight;
    std::vector<std::size_t> m_current;
    std::vector<std::size_t> m_best;
    int m_bestPairs = 0;
    int m_bestInVolume = 0;
    double m_bestCost = 0.0;
    std::vector<std::uint32_t> m_rightOfLeft;
};

} // namespace Kestrion::Simulator
