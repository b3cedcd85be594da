#pragma once

#include "atracsys/status/AtracsysFiducialPairs.h"
#include "atracsys/status/AtracsysStatusFrame.h"

#include <cstddef>
#include <cstdint>

namespace Kestrion::SpryTrack {

/// Looks for a marker geometry among the raw fiducials of a frame the way the camera matches
/// markers (by inter-fiducial distances), but keeps what the camera throws away: the best set of
/// two or more fiducials within the tolerance (a partly seen marker) and the best set of three or
/// more within a wider window (a marker whose fiducials lie nearly, not quite, at the geometry's
/// distances). Sets are compared by the number of geometry points they cover, then by their worst
/// distance deviation.
class AtracsysGeometryMatchSearch {
public:
    /// Search steps per geometry and frame; a dense cloud of fiducials ends the search there with
    /// what was found so far, so that no frame is stalled.
    static constexpr std::size_t MaxSteps = 20000;

    struct Match {
        /// Geometry points covered, and the fiducial of each (StatusNoFiducial when missing).
        std::uint32_t matched = 0;
        std::uint32_t fiducial[StatusMaxGeometryPoints] = {};
        /// The pair of geometry points whose measured distance deviates most from the geometry's.
        double worstDeviationMM = 0.0;
        int worstFirst = -1;
        int worstSecond = -1;
        double worstMeasuredMM = 0.0;
        double worstExpectedMM = 0.0;
    };

    /// Searches the geometry's points (at least two) among the measured fiducials.
    void search(const StatusInstrument& geometry, const AtracsysFiducialPairs& pairs, double toleranceMM,
                double windowMM);

    /// Best set within the tolerance (matched 0 when no pair fits).
    const Match& close() const { return m_close; }
    /// Best set of three or more points within the window (matched 0 when none).
    const Match& near() const { return m_near; }

    /// The longest distance between two points of the geometry.
    static double span(const StatusInstrument& geometry);

private:
    void extend(std::uint32_t point);
    void consider();
    static bool better(const Match& candidate, const Match& best);

    const AtracsysFiducialPairs* m_pairs = nullptr;
    std::uint32_t m_count = 0;
    double m_expected[StatusMaxGeometryPoints][StatusMaxGeometryPoints] = {};
    double m_tolerance = 0.0;
    double m_window = 0.0;
    std::size_t m_steps = 0;
    Match m_current;
    Match m_close;
    Match m_near;
};

} // namespace Kestrion::SpryTrack
