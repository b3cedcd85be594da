#include "atracsys/stream/AtracsysFrameConverter.h"

#include "atracsys/stream/AtracsysInstrumentId.h"

#include <algorithm>
#include <functional>
#include <string>

namespace Kestrion::SpryTrack {

namespace {

constexpr std::uint32_t invalidIndex = AtracsysFiducialSelection::invalidIndex;

bool imageUsable(const ftkImageHeader& header, const std::uint8_t* pixels, ftkQueryStatus status,
                 const ftkVersionSize& size) {
    if (status != ftkQueryStatus::QS_OK || !pixels || header.width == 0 || header.height == 0 ||
        header.imageStrideInBytes < static_cast<std::int32_t>(header.width))
        return false;
    const std::uint64_t needed =
        std::uint64_t(header.imageStrideInBytes) * (header.height - 1u) + std::uint64_t(header.width);
    return size.ReservedSize == 0 || needed <= size.ReservedSize;
}

void appendDetection(const ftkRawData* raw, std::uint32_t count, std::uint32_t index,
                     AtracsysSingleCameraUpdate& camera) {
    if (!raw || index >= count)
        return;
    const ftkRawData& r = raw[index];
    camera.fiducials.emplace_back(r.centerXPixels, r.centerYPixels);
    camera.fiducialSizes.emplace_back(r.width, r.height);
}

std::uint32_t pixelCount(const ftkRawData* raw, std::uint32_t count, std::uint32_t index) {
    return raw && index < count ? raw[index].pixelsCount : 0u;
}

template <class T>
std::uint32_t boundedCount(std::uint32_t count, const ftkVersionSize& size) {
    if (size.ReservedSize == 0)
        return count;
    return std::min<std::uint32_t>(count, size.ReservedSize / sizeof(T));
}

} // namespace

ftkFrameQuery AtracsysFrameConverter::bounded(const ftkFrameQuery& frame) {
    ftkFrameQuery result = frame;
    result.rawDataLeftCount = boundedCount<ftkRawData>(frame.rawDataLeftCount, frame.rawDataLeftVersionSize);
    result.rawDataRightCount =
        boundedCount<ftkRawData>(frame.rawDataRightCount, frame.rawDataRightVersionSize);
    result.threeDFiducialsCount =
        boundedCount<ftk3DFiducial>(frame.threeDFiducialsCount, frame.threeDFiducialsVersionSize);
    result.markersCount = boundedCount<ftkMarker>(frame.markersCount, frame.markersVersionSize);
    return result;
}

AtracsysFrameConverter::AtracsysFrameConverter(std::uint32_t fiducialsCapacity, std::uint32_t markersCapacity)
    : m_selection(fiducialsCapacity, markersCapacity)
    , m_images(AtracsysImagePool::create()) {
    m_markerInstrument.reserve(markersCapacity);
    m_markerIds.reserve(markersCapacity);
    m_fiducialInstrument.reserve(fiducialsCapacity);
}

void AtracsysFrameConverter::selectFiducials(const ftkFrameQuery& frame, FiducialQueryMode mode,
                                             double maxDistance) {
    if (mode == AtracsysTrackingStreamBase::NoFiducials) {
        m_selection.assignOwners(ftkFrameQuery{}, false); // empty selection
        return;
    }
    m_selection.assignOwners(frame, mode == AtracsysTrackingStreamBase::MarkerFiducials);
    if (mode == AtracsysTrackingStreamBase::FiducialsNearMarkers)
        m_selection.selectNearMarkers(frame, maxDistance);
    else if (mode == AtracsysTrackingStreamBase::AllFiducials)
        m_selection.selectAll(frame);
}

bool AtracsysFrameConverter::hasImages(const ftkFrameQuery& frame) {
    if (!frame.imageHeader || frame.imageHeaderStat != ftkQueryStatus::QS_OK)
        return false;
    const ftkImageHeader& header = *frame.imageHeader;
    return imageUsable(header, frame.imageLeftPixels, frame.imageLeftStat, frame.imageLeftVersionSize) &&
           imageUsable(header, frame.imageRightPixels, frame.imageRightStat, frame.imageRightVersionSize);
}

void AtracsysFrameConverter::fillUpdate(const ftkFrameQuery& frame, AtracsysUpdate& update) {
    // The previous frame's images go back to the pool (if nobody else holds them) before the
    // copies of this frame take buffers from it.
    update.left.image.reset();
    update.right.image.reset();
    update.left.image = m_images->copy(*frame.imageHeader, frame.imageLeftPixels);
    update.right.image = m_images->copy(*frame.imageHeader, frame.imageRightPixels);
    update.left.fiducials.clear();
    update.left.fiducialSizes.clear();
    update.right.fiducials.clear();
    update.right.fiducialSizes.clear();
    if (!frame.threeDFiducials)
        return;
    for (std::uint32_t index : m_selection.selected()) {
        const ftk3DFiducial& fiducial = frame.threeDFiducials[index];
        appendDetection(frame.rawDataLeft, frame.rawDataLeftCount, fiducial.leftIndex, update.left);
        appendDetection(frame.rawDataRight, frame.rawDataRightCount, fiducial.rightIndex, update.right);
    }
}

double AtracsysFrameConverter::quality(double registrationErrorMM) {
    return std::max(0.0, 1.0 - registrationErrorMM / 10.0);
}

void AtracsysFrameConverter::writePoses(const ftkFrameQuery& frame, AtracsysInstruments& registry) {
    const std::uint32_t markers = frame.markers ? frame.markersCount : 0;
    m_markerIds.resize(markers);
    for (std::uint32_t m = 0; m < markers; ++m)
        m_markerIds[m] = createId(static_cast<int>(frame.markers[m].geometryId));
    // Entries keep their strings' capacity from frame to frame.
    std::size_t tips = 0;
    // One pass over the instruments under one lock. A marker whose instrument was removed since
    // the frame was fetched finds none and is ignored.
    registry.modifyAll([&](const std::string& id, TrackingInstrument& instrument,
                           AtracsysGeometry& geometry) {
        if (!instrument.active)
            return;
        for (std::uint32_t m = markers; m-- > 0;) { // the last marker of an id wins
            if (m_markerIds[m] != id)
                continue;
            const ftkMarker& marker = frame.markers[m];
            for (int r = 0; r < 3; ++r) {
                for (int c = 0; c < 3; ++c)
                    instrument.matrix(r, c) = marker.rotation[r][c];
                instrument.matrix(r, 3) = marker.translationMM[r];
            }
            instrument.quality = quality(marker.registrationErrorMM);
            if (const auto& tip = geometry.tip()) {
                if (m_tips.size() == tips)
                    m_tips.emplace_back();
                InstrumentTipData::Entry& entry = m_tips[tips++];
                entry.instrumentId = id;
                entry.tipInMarker = *tip;
                entry.tipInCamera =
                    instrument.matrix.topLeftCorner<3, 3>() * *tip + instrument.matrix.topRightCorner<3, 1>();
            }
            return;
        }
    });
    m_tips.resize(tips);
}

std::shared_ptr<InstrumentTipData> AtracsysFrameConverter::tipData() const {
    if (m_tips.empty())
        return nullptr;
    auto data = std::make_shared<InstrumentTipData>();
    data->entries() = m_tips;
    return data;
}

std::shared_ptr<TrackingInstrumentFiducialsData>
AtracsysFrameConverter::fiducialsData(const ftkFrameQuery& frame,
                                      const std::vector<TrackingInstrument>& instruments) {
    static const std::size_t unownedHash = std::hash<std::string>{}(std::string());
    const std::uint32_t markers = frame.markers ? frame.markersCount : 0;
    const std::uint32_t fiducials = frame.threeDFiducials ? frame.threeDFiducialsCount : 0;

    // Owning instrument of each fiducial: the last marker that lists it and has an instrument.
    m_markerInstrument.assign(markers, invalidIndex);
    for (std::uint32_t m = 0; m < markers; ++m) {
        const std::string id = createId(static_cast<int>(frame.markers[m].geometryId));
        for (std::size_t i = 0; i < instruments.size(); ++i)
            if (instruments[i].ID() == id)
                m_markerInstrument[m] = static_cast<std::uint32_t>(i);
    }
    m_fiducialInstrument.assign(fiducials, invalidIndex);
    for (std::uint32_t m = 0; m < markers; ++m) {
        if (m_markerInstrument[m] == invalidIndex)
            continue;
        for (std::uint32_t corresp : frame.markers[m].fiducialCorresp)
            if (corresp < fiducials)
                m_fiducialInstrument[corresp] = m_markerInstrument[m];
    }

    auto data = std::make_shared<TrackingInstrumentFiducialsData>();
    data->reserve(m_selection.selected().size());
    for (std::uint32_t index : m_selection.selected()) {
        const ftk3DFiducial& f = frame.threeDFiducials[index];
        const std::uint32_t ownerId = m_selection.ownerNameId(frame, index);
        const std::size_t hash = ownerId == invalidIndex
                                     ? unownedHash
                                     : std::hash<std::string>{}(createId(static_cast<int>(ownerId)));
        data->addFiducial(Eigen::Vector3d(f.positionMM.x, f.positionMM.y, f.positionMM.z), hash,
                          m_fiducialInstrument[index], f.probability, f.epipolarErrorPixels,
                          f.triangulationErrorMM,
                          pixelCount(frame.rawDataLeft, frame.rawDataLeftCount, f.leftIndex),
                          pixelCount(frame.rawDataRight, frame.rawDataRightCount, f.leftIndex));
    }
    return data;
}

} // namespace Kestrion::SpryTrack
