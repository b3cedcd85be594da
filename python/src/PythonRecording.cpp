#include "python/src/PythonRecording.h"

#include "python/src/PythonError.h"
#include "python/src/PythonFrame.h"

#include "host/core/SharedImage.h"
#include "host/core/TypedImage.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace Kestrion::Python {

namespace {

/// A camera image over the recorded pixels, which it keeps (moved out of the frame, not copied).
std::shared_ptr<SharedImage> image(std::vector<std::uint8_t>&& pixels, int width, int height) {
    auto holder = std::make_shared<std::vector<std::uint8_t>>(std::move(pixels));
    const ImageDescriptor descriptor(PixelType::UInt8, 1, width, height);
    std::shared_ptr<Image> wrapped(new ImageU8(descriptor, holder->data()),
                                   [holder](Image* wrapper) { delete wrapper; });
    return std::make_shared<SharedImage>(std::move(wrapped));
}

std::uint32_t pixelCount(const std::vector<Recording::RawDetection>& raw, std::uint32_t index) {
    return index < raw.size() ? raw[index].pixelsCount : 0u;
}

} // namespace

PythonRecording::PythonRecording(const std::string& path)
    : m_path(path) {
    if (!m_reader.open(path))
        throw PythonError(PythonError::Kind::Input, m_reader.error());
    for (const Recording::Geometry& geometry : m_reader.header().geometries)
        addInstrument(geometry);
}

std::string PythonRecording::instrumentId(std::uint32_t geometryId) {
    return "atracsys-" + std::to_string(geometryId);
}

void PythonRecording::addInstrument(const Recording::Geometry& geometry) {
    if (std::find(m_geometryIds.begin(), m_geometryIds.end(), geometry.id) != m_geometryIds.end())
        return;
    const std::string name =
        geometry.path.empty() ? std::string() : std::filesystem::path(geometry.path).stem().string();
    TrackingInstrument instrument(TrackerID(instrumentId(geometry.id), name));
    instrument.quality = 0.0;
    m_instruments.push_back(std::move(instrument));
    m_geometryIds.push_back(geometry.id);
}

std::shared_ptr<PythonFrame> PythonRecording::next(bool images) {
    const Recording::RecordingReader::Next next = m_reader.next(m_frame, images);
    if (next == Recording::RecordingReader::Next::Failed)
        throw PythonError(PythonError::Kind::Input, m_reader.error());
    if (next == Recording::RecordingReader::Next::End)
        return nullptr;
    const auto& added = m_reader.geometriesAdded();
    for (; m_addedSeen < added.size(); ++m_addedSeen)
        addInstrument(added[m_addedSeen].geometry);

    const std::uint64_t arrivalMs = m_frame.hostTimeUS / 1000;
    std::vector<TrackingInstrument> instruments = m_instruments;
    std::map<std::string, double> errors;
    const bool markersValid = m_frame.status(Recording::Container::Markers) >= 0;
    for (std::size_t i = 0; i < instruments.size() && markersValid; ++i)
        for (const Recording::Marker& marker : m_frame.markers) { // the last marker of an id wins
            if (marker.geometryId != m_geometryIds[i])
                continue;
            TrackingInstrument& instrument = instruments[i];
            for (int r = 0; r < 3; ++r) {
                for (int c = 0; c < 3; ++c)
                    instrument.matrix(r, c) = marker.rotation[static_cast<std::size_t>(r * 3 + c)];
                instrument.matrix(r, 3) = marker.translationMM[static_cast<std::size_t>(r)];
            }
            instrument.quality = std::max(0.0, 1.0 - static_cast<double>(marker.registrationErrorMM) / 10.0);
            instrument.timestamp = arrivalMs;
            errors[instrument.ID()] = marker.registrationErrorMM;
        }

    const std::uint64_t deviceMs = m_frame.hasImageHeader ? m_frame.header.timestampUS / 1000 : 0;
    auto tracking =
        std::make_shared<TrackingStreamData>(nullptr, std::move(instruments), arrivalMs, deviceMs);
    if (m_frame.hasImageHeader)
        tracking->addComponent(std::make_shared<DeviceFrameInfo>(
            header().deviceName, header().serialNumber, m_frame.header.counter, m_frame.header.timestampUS));
    auto fiducials = std::make_shared<TrackingInstrumentFiducialsData>();
    fiducials->reserve(m_frame.fiducials.size());
    for (const Recording::Fiducial& f : m_frame.fiducials)
        fiducials->addFiducial(Eigen::Vector3d(f.positionMM[0], f.positionMM[1], f.positionMM[2]), 0,
                               TrackingInstrumentFiducialsData::NoInstrument, f.probability,
                               f.epipolarErrorPixels, f.triangulationErrorMM,
                               pixelCount(m_frame.rawLeft, f.leftIndex),
                               pixelCount(m_frame.rawRight, f.rightIndex));
    tracking->addComponent(std::move(fiducials));

    std::shared_ptr<SharedImage> left, right;
    if (images && m_frame.hasImages && m_frame.hasImageHeader) {
        left = image(std::move(m_frame.imageLeft), m_frame.header.width, m_frame.header.height);
        right = image(std::move(m_frame.imageRight), m_frame.header.width, m_frame.header.height);
        m_frame.imageLeft.clear();
        m_frame.imageRight.clear();
    }
    auto frame = std::make_shared<PythonFrame>(std::move(tracking), std::move(left), std::move(right));
    frame->setRecordedErrors(std::move(errors));
    return frame;
}

} // namespace Kestrion::Python
