#include "atracsys/recording/AtracsysRecordingCopy.h"

#include "host/core/Time.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace Kestrion::SpryTrack {

namespace {

using Recording::Container;

/// Entries a container holds: its count, bounded by the capacity its version-size gives.
template <typename T>
std::uint32_t filled(const T* data, std::uint32_t count, const ftkVersionSize& size) {
    if (!data)
        return 0;
    return std::min<std::uint32_t>(count, size.ReservedSize / sizeof(T));
}

void copyRaw(const ftkRawData* data, std::uint32_t count, std::vector<Recording::RawDetection>& out) {
    out.resize(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const ftkRawData& r = data[i];
        out[i] = {r.centerXPixels, r.centerYPixels, static_cast<std::uint32_t>(r.status),
                  r.pixelsCount,   r.width,         r.height};
    }
}

bool imageThere(const std::uint8_t* pixels, ftkQueryStatus status) {
    return pixels && static_cast<std::int8_t>(status) == static_cast<std::int8_t>(ftkQueryStatus::QS_OK);
}

} // namespace

void AtracsysRecordingCopy::copyFrame(const ftkFrameQuery& f, bool images, std::uint64_t hostTimeUS,
                                      Recording::Frame& out) {
    out.hostTimeUS = hostTimeUS;
    out.setStatus(Container::ImageHeader, static_cast<std::int8_t>(f.imageHeaderStat));
    out.setStatus(Container::ImageLeft, static_cast<std::int8_t>(f.imageLeftStat));
    out.setStatus(Container::ImageRight, static_cast<std::int8_t>(f.imageRightStat));
    out.setStatus(Container::RawLeft, static_cast<std::int8_t>(f.rawDataLeftStat));
    out.setStatus(Container::RawRight, static_cast<std::int8_t>(f.rawDataRightStat));
    out.setStatus(Container::Fiducials, static_cast<std::int8_t>(f.threeDFiducialsStat));
    out.setStatus(Container::Markers, static_cast<std::int8_t>(f.markersStat));
    out.setStatus(Container::Events, static_cast<std::int8_t>(f.eventsStat));
    out.hasImageHeader = f.imageHeader != nullptr;
    if (f.imageHeader) {
        const ftkImageHeader& h = *f.imageHeader;
        out.header = {h.timestampUS, h.desynchroUS, h.counter,           static_cast<std::uint8_t>(h.format),
                      h.width,       h.height,      h.imageStrideInBytes};
    } else {
        out.header = {};
    }
    copyRaw(f.rawDataLeft, filled(f.rawDataLeft, f.rawDataLeftCount, f.rawDataLeftVersionSize), out.rawLeft);
    copyRaw(f.rawDataRight, filled(f.rawDataRight, f.rawDataRightCount, f.rawDataRightVersionSize),
            out.rawRight);

    const std::uint32_t fiducials =
        filled(f.threeDFiducials, f.threeDFiducialsCount, f.threeDFiducialsVersionSize);
    out.fiducials.resize(fiducials);
    for (std::uint32_t i = 0; i < fiducials; ++i) {
        const ftk3DFiducial& d = f.threeDFiducials[i];
        out.fiducials[i] = {static_cast<std::uint32_t>(d.status),
                            d.leftIndex,
                            d.rightIndex,
                            {d.positionMM.x, d.positionMM.y, d.positionMM.z},
                            d.epipolarErrorPixels,
                            d.triangulationErrorMM,
                            d.probability};
    }
    const std::uint32_t markers = filled(f.markers, f.markersCount, f.markersVersionSize);
    out.markers.resize(markers);
    for (std::uint32_t i = 0; i < markers; ++i) {
        const ftkMarker& m = f.markers[i];
        Recording::Marker& r = out.markers[i];
        r.status = static_cast<std::uint32_t>(m.status);
        r.trackingId = m.id;
        r.geometryId = m.geometryId;
        r.presenceMask = m.geometryPresenceMask;
        for (std::size_t k = 0; k < Recording::Marker::MaxFiducials; ++k)
            r.correspondences[k] = m.fiducialCorresp[k];
        for (std::size_t row = 0; row < 3; ++row)
            for (std::size_t col = 0; col < 3; ++col)
                r.rotation[row * 3 + col] = m.rotation[row][col];
        for (std::size_t k = 0; k < 3; ++k)
            r.translationMM[k] = m.translationMM[k];
        r.registrationErrorMM = m.registrationErrorMM;
    }

    const std::size_t imageSize = std::size_t(out.header.width) * out.header.height;
    out.hasImages =
        images && f.imageHeader && imageSize > 0 && imageThere(f.imageLeftPixels, f.imageLeftStat) &&
        imageThere(f.imageRightPixels, f.imageRightStat) &&
        f.imageLeftVersionSize.ReservedSize >= imageSize && f.imageRightVersionSize.ReservedSize >= imageSize;
    if (out.hasImages) {
        // The recorder keeps the pixels packed, whatever stride the camera used.
        const std::size_t stride = f.imageHeader->imageStrideInBytes > 0
                                       ? std::size_t(f.imageHeader->imageStrideInBytes)
                                       : out.header.width;
        out.hasImages = stride * (out.header.height - 1) + out.header.width <=
                        std::min(f.imageLeftVersionSize.ReservedSize, f.imageRightVersionSize.ReservedSize);
        out.imageLeft.resize(out.hasImages ? imageSize : 0);
        out.imageRight.resize(out.hasImages ? imageSize : 0);
        for (std::size_t row = 0; out.hasImages && row < out.header.height; ++row) {
            std::memcpy(out.imageLeft.data() + row * out.header.width, f.imageLeftPixels + row * stride,
                        out.header.width);
            std::memcpy(out.imageRight.data() + row * out.header.width, f.imageRightPixels + row * stride,
                        out.header.width);
        }
        out.header.strideBytes = out.header.width;
    } else {
        out.imageLeft.clear();
        out.imageRight.clear();
    }
}

namespace {

struct OptionList {
    std::vector<Recording::OptionValue> options;
};

extern "C" void collectOption(uint64, void* user, ftkOptionsInfo* info) {
    if (!user || !info)
        return;
    Recording::OptionValue value;
    value.id = info->id;
    value.name = info->name ? info->name : "";
    value.type = static_cast<Recording::OptionValue::Type>(static_cast<std::uint8_t>(info->type));
    value.readable = info->status.read != 0;
    static_cast<OptionList*>(user)->options.push_back(std::move(value));
}

} // namespace

Recording::SessionHeader AtracsysRecordingCopy::sessionHeader(
    ftkLibrary library, std::uint64_t serial, ftkDeviceType type, const std::string& name,
    const std::vector<std::pair<std::string, ftkGeometry>>& geometries, bool images) {
    Recording::SessionHeader header;
    header.deviceType = static_cast<std::int32_t>(type);
    header.serialNumber = serial;
    header.deviceName = name;
    header.startedUS = Time::utcMilliseconds() * 1000;
    header.withImages = images;
    OptionList list;
    ftkEnumerateOptions(library, serial, collectOption, &list);
    for (Recording::OptionValue& v : list.options) {
        if (!v.readable)
            continue;
        ftkError status = ftkError::FTK_ERR_INV_OPT;
        switch (v.type) {
        case Recording::OptionValue::Type::Int32:
            status = ftkGetInt32(library, serial, v.id, &v.intValue, ftkOptionGetter::FTK_VALUE);
            break;
        case Recording::OptionValue::Type::Float32:
            status = ftkGetFloat32(library, serial, v.id, &v.floatValue, ftkOptionGetter::FTK_VALUE);
            break;
        case Recording::OptionValue::Type::Data: {
            auto buffer = std::make_unique<ftkBuffer>(); // 10 kB: not on the stack
            status = ftkGetData(library, serial, v.id, buffer.get());
            if (status == ftkError::FTK_OK)
                v.data.assign(buffer->data, std::min<std::uint32_t>(buffer->size, BUFFER_MAX_SIZE));
            break;
        }
        }
        // An option that cannot be read now is kept by name, without a value.
        v.readable = status == ftkError::FTK_OK;
    }
    list.options.erase(std::remove_if(list.options.begin(), list.options.end(),
                                      [](const Recording::OptionValue& v) {
                                          return v.type != Recording::OptionValue::Type::Int32 &&
                                                 v.type != Recording::OptionValue::Type::Float32 &&
                                                 v.type != Recording::OptionValue::Type::Data;
                                      }),
                       list.options.end());
    header.options = std::move(list.options);
    for (const auto& [path, g] : geometries)
        header.geometries.push_back(geometry(path, g));
    return header;
}

Recording::Geometry AtracsysRecordingCopy::geometry(const std::string& path, const ftkGeometry& g) {
    Recording::Geometry geometry;
    geometry.id = g.geometryId;
    geometry.version = static_cast<std::uint8_t>(g.version);
    const std::uint32_t count = std::min<std::uint32_t>(g.pointsCount, FTK_MAX_FIDUCIALS);
    for (std::uint32_t i = 0; i < count; ++i)
        geometry.pointsMM.push_back({g.positions[i].x, g.positions[i].y, g.positions[i].z});
    geometry.path = path;
    return geometry;
}

} // namespace Kestrion::SpryTrack
