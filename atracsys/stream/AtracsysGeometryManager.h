#pragma once

#include "atracsys/stream/AtracsysInstruments.h"

#include "host/stream/TrackingStream.h"

#include <Eigen/Core>

#include <ftkInterface.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion::SpryTrack {

class AtracsysDeviceContext;
class AtracsysRecorder;

/// The tracking stream's marker geometries: loading a geometry file into an instrument, putting
/// it on the camera (at once when the camera is open, else at the next start), taking it off, and
/// what the camera refused and why (as data, for hosts that decide on it).
///
/// Threads. Called from any thread (the user interface, a workspace being loaded, the stream's
/// control thread at start and close). Every SDK call holds the device mutex (announced, see
/// AtracsysDeviceContext::Lock); the registry is taken after it (lock order); the refusals have
/// their own mutex, taken last and held for a copy only.
class AtracsysGeometryManager {
public:
    /// `toleranceMM` is read when a geometry is added (the ambiguity warnings).
    AtracsysGeometryManager(TrackingStream& stream, AtracsysDeviceContext& device,
                            AtracsysInstruments& instruments, AtracsysRecorder& recorder);

    /// Loads the file and creates instrument createId(geometry id) named `name`; puts the geometry
    /// on the camera when it is open. False when the file cannot be loaded or the id exists.
    bool addGeometry(const std::string& name, const std::string& path, double toleranceMM);
    /// Takes the geometry off the camera and removes the instrument; false (instrument kept) when
    /// the camera refuses.
    bool removeGeometry(const std::string& instrumentId);
    /// Loads the instrument's geometry again from `path` under the same name (a tip written into
    /// its file): taken off the camera first when it is on it, so this works whether or not the
    /// stream tracks. False when the camera refuses the removal (instrument kept) or the file
    /// cannot be loaded (instrument gone, as after a removal).
    bool reloadGeometry(const std::string& instrumentId, const std::string& name, const std::string& path,
                        double toleranceMM);
    /// The fiducial positions of the instrument's geometry (mm, file order); empty without it.
    std::vector<Eigen::Vector3d> geometryCoordinates(const std::string& instrumentId);

    /// (name, geometry file) of every instrument, in the registry's order.
    std::vector<std::pair<std::string, std::string>> targets() const;

    /// Start: puts every geometry that is not on the camera on it.
    void pushGeometries();
    /// Close (device mutex held by the caller): no geometry is on the camera any more.
    void markAllNotOnDevice();
    /// Open: refusals of an earlier connection no longer hold.
    void clearRefusals();
    /// The geometries the camera refused since the last open, in instrument id order.
    std::vector<InstrumentRefusal> refusedInstruments() const;

private:
    /// Clears the geometry on the camera (always, or `onlyOffTheCamera`: only when it is on it)
    /// and removes the instrument; false (instrument kept) when the camera refuses.
    bool remove(const std::string& instrumentId, bool onlyOffTheCamera);
    /// (device mutex) Notes the camera's refusal of a geometry, with its error and the SDK's words.
    void noteRefusal(const std::string& id, const std::string& path, ftkError result);
    void forgetRefusal(const std::string& id);

    TrackingStream& m_stream;
    AtracsysDeviceContext& m_device;
    AtracsysInstruments& m_instruments;
    AtracsysRecorder& m_recorder;

    mutable std::mutex m_refusalsMutex; // written by geometry calls, read by hosts from any thread
    std::map<std::string, InstrumentRefusal> m_refusals;
};

} // namespace Kestrion::SpryTrack
