#include "atracsys/stream/AtracsysFiducialSelection.h"

#include <algorithm>

namespace Kestrion::SpryTrack {

AtracsysFiducialSelection::AtracsysFiducialSelection(std::uint32_t fiducialsCapacity,
                                                     std::uint32_t markersCapacity) {
    m_owner.reserve(fiducialsCapacity);
    m_ownerMarker.reserve(fiducialsCapacity);
    // Owned fiducials are listed once per marker that claims them.
    m_selected.reserve(
        std::max<std::size_t>(fiducialsCapacity, std::size_t(markersCapacity) * FTK_MAX_FIDUCIALS));
    m_translations.reserve(3 * std::size_t(markersCapacity));
}

void AtracsysFiducialSelection::assignOwners(const ftkFrameQuery& frame, bool selectOwned) {
    const std::uint32_t fiducials = frame.threeDFiducials ? frame.threeDFiducialsCount : 0;
    m_owner.assign(fiducials, invalidIndex);
    m_ownerMarker.assign(fiducials, invalidIndex);
    m_selected.clear();
    if (!frame.markers)
        return;
    for (std::uint32_t m = 0; m < frame.markersCount; ++m) {
        const ftkMarker& marker = frame.markers[m];
        for (std::uint32_t k = 0; k < FTK_MAX_FIDUCIALS; ++k) {
            const std::uint32_t fiducial = marker.fiducialCorresp[k];
            if (fiducial >= fiducials) // INVALID_ID, or beyond what the frame holds
                continue;
            m_owner[fiducial] = marker.geometryId;
            m_ownerMarker[fiducial] = m;
            if (selectOwned)
                m_selected.push_back(fiducial);
        }
    }
}

void AtracsysFiducialSelection::selectNearMarkers(const ftkFrameQuery& frame, double maxDistance) {
    m_translations.clear();
    if (frame.markers) {
        for (std::uint32_t m = 0; m < frame.markersCount; ++m) {
            const float* t = frame.markers[m].translationMM;
            m_translations.push_back(t[0]);
            m_translations.push_back(t[1]);
            m_translations.push_back(t[2]);
        }
    }
    if (m_translations.empty() || !frame.threeDFiducials)
        return;
    const double limit = maxDistance * maxDistance;
    const std::size_t values = m_translations.size();
    for (std::uint32_t i = 0; i < frame.threeDFiducialsCount; ++i) {
        const ftk3DPoint& p = frame.threeDFiducials[i].positionMM;
        const double x = p.x;
        const double y = p.y;
        const double z = p.z;
        for (std::size_t t = 0; t < values; t += 3) {
            const double dx = x - m_translations[t];
            const double dy = y - m_translations[t + 1];
            const double dz = z - m_translations[t + 2];
            if (dx * dx + dy * dy + dz * dz <= limit) {
                m_selected.push_back(i);
                break;
            }
        }
    }
}

void AtracsysFiducialSelection::selectAll(const ftkFrameQuery& frame) {
    const std::uint32_t fiducials = frame.threeDFiducials ? frame.threeDFiducialsCount : 0;
    for (std::uint32_t i = 0; i < fiducials; ++i)
        m_selected.push_back(i);
}

std::uint32_t AtracsysFiducialSelection::ownerNameId(const ftkFrameQuery& frame,
                                                     std::uint32_t fiducial) const {
    const std::uint32_t owner = m_owner[fiducial];
    if (owner == invalidIndex)
        return invalidIndex;
    if (frame.markers && owner < frame.markersCount)
        return frame.markers[owner].geometryId;
    return owner;
}

} // namespace Kestrion::SpryTrack
