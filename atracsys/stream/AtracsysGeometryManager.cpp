#include "atracsys/stream/AtracsysGeometryManager.h"

#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "atracsys/recording/AtracsysRecorder.h"
#include "atracsys/stream/AtracsysDeviceContext.h"
#include "atracsys/stream/AtracsysGeometry.h"
#include "atracsys/stream/AtracsysGeometryWarnings.h"
#include "atracsys/stream/AtracsysInstrumentId.h"

#include "host/core/Log.h"

#include <algorithm>

namespace Kestrion::SpryTrack {

namespace {
constexpr const char* Category = "AtracsysTrackingStream";
}

AtracsysGeometryManager::AtracsysGeometryManager(TrackingStream& stream, AtracsysDeviceContext& device,
                                                 AtracsysInstruments& instruments, AtracsysRecorder& recorder)
    : m_stream(stream)
    , m_device(device)
    , m_instruments(instruments)
    , m_recorder(recorder) {}

bool AtracsysGeometryManager::addGeometry(const std::string& name, const std::string& path,
                                          double toleranceMM) {
    std::optional<AtracsysHelpers::GeometryFile> file = AtracsysHelpers::loadGeometryFile(path);
    if (!file) {
        KESTRION_LOG_ERROR(Category, "Cannot load geometry from file " << path);
        return false;
    }
    ftkGeometry* const geometry = &file->geometry;
    InstrumentModifications modifications;
    {
        // Held until the instrument exists, so that a close in between marks it as not on the
        // device (see AtracsysTrackingStream::closeImpl); registry calls come after the device
        // mutex (lock order).
        AtracsysDeviceContext::Lock lock(m_device);
        moveOutOfReservedIds(m_device.device().name, *geometry);
        const std::string id = createId(static_cast<int>(geometry->geometryId));
        bool onDevice = false;
        // An id that exists already is refused by the registry below; its geometry on the device
        // stays the registered instrument's.
        if (m_device.library() && !m_instruments.find(id)) {
            const ftkError result = ftkSetGeometry(m_device.library(), m_device.serialNumber(), &*geometry);
            onDevice = result == ftkError::FTK_OK;
            if (!onDevice) {
                KESTRION_LOG_ERROR(Category,
                                   "Cannot set geometry loaded from " << path << " to tracking system");
                noteRefusal(id, path, result);
            } else {
                m_recorder.recordGeometry(path, *geometry); // while a recording runs
            }
        }
        auto special = std::make_unique<AtracsysGeometry>(path, *geometry, onDevice);
        special->setTip(file->tip);
        modifications = m_instruments.create(TrackerID(id, name), std::move(special), true);
    }
    m_stream.emitSignals(modifications);
    const bool added = modifications.testFlag(InstrumentModification::InstrumentsChanged);
    const std::string id = createId(static_cast<int>(geometry->geometryId));
    if (added) // warns when the camera could confuse it with itself or another marker
        warnAboutAmbiguity(m_instruments, id, toleranceMM);
    else
        explainDuplicateId(m_instruments, id, path);
    return added;
}

bool AtracsysGeometryManager::removeGeometry(const std::string& instrumentId) {
    return remove(instrumentId, false);
}

bool AtracsysGeometryManager::reloadGeometry(const std::string& instrumentId, const std::string& name,
                                             const std::string& path, double toleranceMM) {
    return remove(instrumentId, true) && addGeometry(name, path, toleranceMM);
}

bool AtracsysGeometryManager::remove(const std::string& instrumentId, bool onlyOffTheCamera) {
    InstrumentModifications modifications;
    {
        // An SDK call, then the registry. Under the device mutex, so that an open or close cannot
        // put the geometry on the camera or take it off between the look and the removal.
        AtracsysDeviceContext::Lock lock(m_device);
        bool onDevice = !onlyOffTheCamera;
        if (onlyOffTheCamera)
            m_instruments.modify(instrumentId, [&onDevice](const std::string&, AtracsysGeometry& g) {
                onDevice = g.isOnDevice();
            });
        if (onDevice && ftkClearGeometry(m_device.library(), m_device.serialNumber(),
                                         static_cast<std::uint32_t>(extractAtracsysId(instrumentId))) !=
                            ftkError::FTK_OK) {
            KESTRION_LOG_WARN(Category, "AtracsysTracking: Cannot remove geometry with id "
                                            << instrumentId << " from tracking system");
            return false;
        }
        modifications = m_instruments.remove(instrumentId);
    }
    forgetRefusal(instrumentId);
    m_stream.emitSignals(modifications);
    return true;
}

std::vector<Eigen::Vector3d> AtracsysGeometryManager::geometryCoordinates(const std::string& instrumentId) {
    std::optional<ftkGeometry> geometry;
    m_instruments.modify(instrumentId,
                         [&geometry](const std::string&, AtracsysGeometry& g) { geometry = g.geometry(); });
    if (!geometry) {
        KESTRION_LOG_ERROR(Category, "Cannot query geometry coordinates from id " << instrumentId
                                                                                  << " from tracking system");
        return {};
    }
    const std::uint32_t count = std::min<std::uint32_t>(geometry->pointsCount, FTK_MAX_FIDUCIALS);
    std::vector<Eigen::Vector3d> points;
    points.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const ftk3DPoint& p = geometry->positions[i];
        points.emplace_back(p.x, p.y, p.z);
    }
    return points;
}

std::vector<std::pair<std::string, std::string>> AtracsysGeometryManager::targets() const {
    // Names and paths are collected under the registry's lock and used after it.
    std::vector<std::pair<std::string, std::string>> targets;
    targets.reserve(m_instruments.size());
    m_instruments.modifyAll(
        [&targets](const std::string&, TrackingInstrument& instrument, AtracsysGeometry& geometry) {
            targets.emplace_back(instrument.id.name, geometry.path());
        });
    return targets;
}

void AtracsysGeometryManager::pushGeometries() {
    for (auto& [id, geometry] : m_instruments.specialObjects()) {
        if (geometry->isOnDevice())
            continue;
        AtracsysDeviceContext::Lock lock(m_device); // an SDK call, then the registry
        // Removed meanwhile (removeGeometry holds the device mutex too): nothing to push.
        if (!m_instruments.find(id))
            continue;
        const ftkError result =
            ftkSetGeometry(m_device.library(), m_device.serialNumber(), &geometry->geometry());
        if (result == ftkError::FTK_OK) {
            m_instruments.modify(id, [](const std::string&, AtracsysGeometry& g) { g.setOnDevice(true); });
            forgetRefusal(id);
        } else {
            KESTRION_LOG_ERROR(Category, "Cannot set geometry loaded from " << geometry->path()
                                                                            << " to tracking system");
            noteRefusal(id, geometry->path(), result);
        }
    }
}

void AtracsysGeometryManager::markAllNotOnDevice() {
    m_instruments.modifyAll(
        [](const std::string&, AtracsysGeometry& geometry) { geometry.setOnDevice(false); });
}

void AtracsysGeometryManager::clearRefusals() {
    std::lock_guard<std::mutex> lock(m_refusalsMutex);
    m_refusals.clear();
}

std::vector<InstrumentRefusal> AtracsysGeometryManager::refusedInstruments() const {
    std::lock_guard<std::mutex> lock(m_refusalsMutex);
    std::vector<InstrumentRefusal> refusals;
    refusals.reserve(m_refusals.size());
    for (const auto& [id, refusal] : m_refusals)
        refusals.push_back(refusal);
    return refusals;
}

void AtracsysGeometryManager::noteRefusal(const std::string& id, const std::string& path, ftkError result) {
    std::string reason =
        "the camera refused the geometry (error " + std::to_string(static_cast<int>(result)) + ")";
    char text[1024] = {};
    if (ftkGetLastErrorString(m_device.library(), sizeof text, text) == ftkError::FTK_OK) {
        text[sizeof text - 1] = '\0';
        if (text[0] != '\0')
            reason += ": " + std::string(text);
    }
    std::lock_guard<std::mutex> lock(m_refusalsMutex);
    m_refusals[id] = {id, path, std::move(reason)};
}

void AtracsysGeometryManager::forgetRefusal(const std::string& id) {
    std::lock_guard<std::mutex> lock(m_refusalsMutex);
    m_refusals.erase(id);
}

} // namespace Kestrion::SpryTrack
