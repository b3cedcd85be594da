#pragma once

#include "atracsys/status/AtracsysFiducialPairs.h"
#include "atracsys/status/AtracsysGeometryMatchSearch.h"
#include "atracsys/status/AtracsysStatusFrame.h"

#include "host/stream/InstrumentStatusData.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion::SpryTrack {

/// Tells for every instrument of a frame whether it is tracked and, when not, why: the geometry is
/// not on the camera, the instrument is inactive, some of the geometry's fiducials are missing,
/// fiducials lie nearly but not within the tolerance at the geometry's distances (or are taken by
/// another marker), or nothing of it is in view.
///
/// One object serves every frame of a stream on one thread; its buffers keep their capacity, and
/// the raw fiducials are only measured when some instrument is not tracked.
class AtracsysInstrumentStatusEvaluator {
public:
    /// "Nearly at the geometry's distances": within this many distance tolerances.
    static constexpr double NearFactor = 3.0;

    struct Settings {
        /// The camera's "Distance matching tolerance" (mm).
        double toleranceMM = 1.0;
        /// Registration errors above this (mm) make a tracked instrument "high error".
        double errorThresholdMM = 0.5;
    };

    /// One entry per instrument, in the order of `instruments` (entries are resized and refilled,
    /// keeping the capacity of their texts).
    void evaluate(const StatusFrame& frame, const std::vector<StatusInstrument>& instruments,
                  const Settings& settings, std::vector<InstrumentStatusData::Entry>& entries);

private:
    void describeTracked(const StatusInstrument& instrument, const StatusMarker& marker,
                         const Settings& settings, InstrumentStatusData::Entry& entry);
    void describeUnseen(const StatusInstrument& instrument, const std::vector<StatusInstrument>& instruments,
                        const StatusFrame& frame, const Settings& settings,
                        InstrumentStatusData::Entry& entry);
    /// "0, 2" for the points of `match` that are (found) or are not (missing) covered.
    void listPoints(const AtracsysGeometryMatchSearch::Match& match, std::uint32_t count, bool found,
                    std::string& out) const;
    /// True when three or more points of the geometry lie, within the tolerance, at the
    /// distances of the marker's fiducials (the search's close() then holds them).
    bool fitsMarker(const StatusInstrument& instrument, const StatusMarker& marker, const StatusFrame& frame,
                    double toleranceMM);
    const StatusMarker* markerOf(const StatusFrame& frame, std::uint32_t geometryId) const;

    AtracsysFiducialPairs m_pairs; // the fiducials no marker holds
    AtracsysGeometryMatchSearch m_search;
    std::vector<char> m_owned; // per fiducial: held by a marker of the frame
    std::vector<Eigen::Vector3d> m_free;
    std::vector<Eigen::Vector3d> m_markerFiducials;
    AtracsysFiducialPairs m_markerPairs;
    std::string m_found;
    std::string m_missing;
};

} // namespace Kestrion::SpryTrack
