#pragma once

// Helpers for the simulated camera's tests. The interface's records are packed, so fields at odd
// addresses go to the assertion macros (which bind references) as values: +frame->markersCount.

#include "simulator/control/ftkSimulator.h"

#include <ftkInterface.h>

#include <gtest/gtest.h>

#include <Eigen/Core>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion::SimulatorTest {

/// Loads a scene (or the default one) with a stepped clock; restores the default and free running.
class SceneGuard {
public:
    explicit SceneGuard(const std::string& json = std::string(), bool stepped = true);
    ~SceneGuard();
};

std::string controlError(); ///< The last control error as text.

/// One library handle connected to the first enumerated device, with one frame record.
class Camera {
public:
    struct Capacities {
        bool pixels = false;
        uint32 events = 20, left = 128, right = 128, fiducials = 256, markers = 16;
    };

    Camera();
    explicit Camera(const Capacities& capacities);
    ~Camera();
    Camera(const Camera&) = delete;

    ftkError fetch(uint32 timeoutMS = 0) { return ftkGetLastFrame(lib, serial, frame, timeoutMS); }
    /// Truth of the last fetched frame (fails the test when there is none).
    std::unique_ptr<ftkSimFrameTruth> truth() const;
    /// Option id by name (fails the test when the device has no such option).
    uint32 option(const std::string& name) const;
    ftkError setGeometry(const ftkGeometry& geometry) {
        return ftkSetGeometry(lib, serial, const_cast<ftkGeometry*>(&geometry));
    }
    std::string errorText() const;
    /// Option calls on this camera; a read without an output pointer goes to a scratch value.
    ftkError setInt(uint32 id, int32 value) { return ftkSetInt32(lib, serial, id, value); }
    ftkError setFloat(uint32 id, float value) { return ftkSetFloat32(lib, serial, id, value); }
    ftkError getInt(uint32 id, ftkOptionGetter what = ftkOptionGetter::FTK_VALUE,
                    int32* out = nullptr) const {
        int32 scratch = 0;
        return ftkGetInt32(lib, serial, id, out ? out : &scratch, what);
    }
    ftkError getFloat(uint32 id, ftkOptionGetter what = ftkOptionGetter::FTK_VALUE,
                      float* out = nullptr) const {
        float scratch = 0;
        return ftkGetFloat32(lib, serial, id, out ? out : &scratch, what);
    }
    /// Registers the default scene's markers 1000 and 1001.
    void registerDefaultMarkers();

    ftkLibrary lib = nullptr;
    uint64 serial = 0;
    ftkDeviceType type = ftkDeviceType::DEV_UNKNOWN_DEVICE;
    ftkFrameQuery* frame = nullptr;
};

/// Serial numbers and types reported by ftkEnumerateDevices, and its status.
struct Enumeration {
    ftkError status = ftkError::FTK_OK;
    std::vector<std::pair<uint64, ftkDeviceType>> devices;
};
Enumeration enumerate(ftkLibrary lib);

/// Options reported by ftkEnumerateOptions (copied), and its status.
struct OptionInfo {
    uint32 id;
    uint8 type;
    bool hasName, hasUnit;
    std::string name;
};
std::vector<OptionInfo> enumerateOptions(ftkLibrary lib, uint64 serial, ftkError* status = nullptr);

using Points = std::vector<std::array<float, 3>>;
/// The default scene's markers (as in data/markers/geometry1000.ini and geometry1001.ini).
inline const Points Marker1000 = {{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}};
inline const Points Marker1001 = {{0, 0, 0}, {-1, 83, 0}, {-62, -5, 0}, {-67, 111, 0}};
ftkGeometry makeGeometry(uint32 id, const Points& points);

/// The marker of that geometry in the frame or the truth, or null.
const ftkMarker* findMarker(const ftkFrameQuery& frame, uint32 geometryId);
const ftkSimMarkerTruth* findTruth(const ftkSimFrameTruth& truth, uint32 geometryId);
/// Angle in degrees between a marker's rotation and the true one.
double rotationErrorDeg(const ftkMarker& marker, const ftkSimMarkerTruth& truth);

} // namespace Kestrion::SimulatorTest
