#pragma once

#include <ftkInterface.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kestrion::SpryTrack {

/// Chooses the raw 3D fiducials of a frame that go out with its tracking data, and records which
/// marker owns each fiducial. One object serves every frame of a stream: its buffers keep their
/// capacity, so a frame allocates nothing once the first frames have been seen.
///
/// Entries of the frame that do not describe a fiducial of the frame (a marker correspondence at
/// or beyond the fiducial count, a raw index beyond the raw count) are never read or written.
class AtracsysFiducialSelection {
public:
    static constexpr std::uint32_t invalidIndex = 0xFFFFFFFFu;

    /// Reserves room for frames of up to that many fiducials and markers.
    AtracsysFiducialSelection(std::uint32_t fiducialsCapacity, std::uint32_t markersCapacity);

    /// Starts a frame: every fiducial unowned, nothing selected. Then, for each marker in order and
    /// each of its correspondences, the fiducial's owner becomes the marker's geometry id (a later
    /// marker overrides an earlier one); with `selectOwned` the fiducial is also selected, in that
    /// order (a fiducial shared by two markers is selected twice).
    void assignOwners(const ftkFrameQuery& frame, bool selectOwned);
    /// Selects, in index order, every fiducial whose squared distance to the translation of some
    /// marker of the frame is at most maxDistance squared. Nothing without markers.
    void selectNearMarkers(const ftkFrameQuery& frame, double maxDistance);
    /// Selects every fiducial in index order.
    void selectAll(const ftkFrameQuery& frame);

    /// Selected fiducial indices, in selection order.
    const std::vector<std::uint32_t>& selected() const { return m_selected; }
    /// Geometry id of the marker that owns the fiducial, or invalidIndex.
    std::uint32_t owner(std::uint32_t fiducial) const { return m_owner[fiducial]; }
    /// Marker position (in the frame's marker array) of the owner, or invalidIndex.
    std::uint32_t ownerMarker(std::uint32_t fiducial) const { return m_ownerMarker[fiducial]; }

    /// Geometry id that names the owner of a fiducial (see AtracsysTrackingStream: the owner's
    /// geometry id is first taken as a position in the frame's markers, whose geometry id is then
    /// used; an owner that is not such a position names itself). invalidIndex when unowned.
    std::uint32_t ownerNameId(const ftkFrameQuery& frame, std::uint32_t fiducial) const;

private:
    std::vector<std::uint32_t> m_owner;
    std::vector<std::uint32_t> m_ownerMarker;
    std::vector<std::uint32_t> m_selected;
    std::vector<double> m_translations; // x, y, z per marker
};

} // namespace Kestrion::SpryTrack
