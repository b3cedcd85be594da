#pragma once

#include "atracsys/stream/AtracsysFiducialSelection.h"
#include "atracsys/stream/AtracsysImagePool.h"
#include "atracsys/stream/AtracsysInstruments.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"

#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"

#include <ftkInterface.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion::SpryTrack {

/// Turns the content of a fetched frame record into the stream's output: the selection of raw 3D
/// fiducials, the camera update with its images, the instrument poses and the fiducials data.
/// One object serves every frame of a stream on its worker thread; its buffers keep their
/// capacity from frame to frame.
///
/// Indices found in the frame (marker correspondences, raw-data indices) are checked against the
/// frame's counts before they are used, so a frame whose containers overflowed or that refers to
/// entries it does not hold is never read outside its arrays.
class AtracsysFrameConverter {
public:
    using FiducialQueryMode = AtracsysTrackingStreamBase::FiducialQueryMode;

    AtracsysFrameConverter(std::uint32_t fiducialsCapacity, std::uint32_t markersCapacity);

    /// The frame with each container's count cut to what the container's reserved size holds
    /// (a count is kept as it is when the reserved size is not given), so that nothing after
    /// reads past the frame's arrays whatever counts the record carries.
    static ftkFrameQuery bounded(const ftkFrameQuery& frame);

    /// Chooses the fiducials of the frame for the mode (nothing for NoFiducials).
    void selectFiducials(const ftkFrameQuery& frame, FiducialQueryMode mode, double maxDistance);
    const AtracsysFiducialSelection& selection() const { return m_selection; }

    /// True when the frame holds both camera images (header and both pixel statuses OK, buffers
    /// large enough for the header's size).
    static bool hasImages(const ftkFrameQuery& frame);
    /// Refills `update` from a frame with images: a copy of each camera image (in buffers that
    /// are used again once the images are released), and for each
    /// selected fiducial the centre and size of its detection in each camera (a fiducial whose
    /// detection is not among the frame's raw data is left out of that camera's lists).
    void fillUpdate(const ftkFrameQuery& frame, AtracsysUpdate& update);

    /// Writes the pose and quality of every marker of the frame into the active instrument
    /// "atracsys-" + geometry id (markers without instrument are ignored), and notes where the
    /// pose puts the tip of each instrument whose geometry has one (tipData).
    void writePoses(const ftkFrameQuery& frame, AtracsysInstruments& registry);
    /// Quality of a marker pose from its registration error: 1 - error / 10 mm, at least 0.
    static double quality(double registrationErrorMM);
    /// The tips noted by the last writePoses as a data component; null when no instrument with a
    /// tip was tracked in that frame.
    std::shared_ptr<InstrumentTipData> tipData() const;

    /// The selected fiducials as a data component: position, owner id hash, index of the owning
    /// instrument in `instruments`, probability, epipolar and triangulation errors, and the pixel
    /// counts of the left detection (at the fiducial's left index in the left and, as the
    /// component defines it, in the right raw data).
    std::shared_ptr<TrackingInstrumentFiducialsData>
    fiducialsData(const ftkFrameQuery& frame, const std::vector<TrackingInstrument>& instruments);

private:
    AtracsysFiducialSelection m_selection;
    std::shared_ptr<AtracsysImagePool> m_images;
    std::vector<std::string> m_markerIds;            // instrument id per marker of the frame
    std::vector<std::uint32_t> m_markerInstrument;   // instrument index per marker of the frame
    std::vector<std::uint32_t> m_fiducialInstrument; // instrument index per fiducial of the frame
    std::vector<InstrumentTipData::Entry> m_tips;    // tips of the instruments tracked in the frame
};

} // namespace Kestrion::SpryTrack
