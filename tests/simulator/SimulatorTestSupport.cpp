#include "tests/simulator/SimulatorTestSupport.h"

#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>

namespace Kestrion::SimulatorTest {

SceneGuard::SceneGuard(const std::string& json, bool stepped) {
    ftkSimSetSteppedClock(stepped);
    EXPECT_TRUE(json.empty() ? ftkSimResetScene() : ftkSimLoadScene(json.c_str())) << controlError();
}

SceneGuard::~SceneGuard() {
    ftkSimSetSteppedClock(false);
    ftkSimResetScene();
}

std::string controlError() {
    std::string text(ftkSimGetLastError(nullptr, 0) + 1, '\0');
    ftkSimGetLastError(text.data(), text.size());
    text.resize(text.size() - 1);
    return text;
}

Camera::Camera()
    : Camera(Capacities()) {}

Camera::Camera(const Capacities& c) {
    lib = ftkInit();
    EXPECT_NE(lib, nullptr) << controlError();
    const Enumeration e = enumerate(lib);
    if (!e.devices.empty()) {
        serial = e.devices.front().first;
        type = e.devices.front().second;
    }
    frame = ftkCreateFrame();
    EXPECT_EQ(ftkSetFrameOptions(c.pixels, c.events, c.left, c.right, c.fiducials, c.markers, frame),
              ftkError::FTK_OK);
}

Camera::~Camera() {
    ftkDeleteFrame(frame);
    ftkClose(&lib);
}

std::unique_ptr<ftkSimFrameTruth> Camera::truth() const {
    auto t = std::make_unique<ftkSimFrameTruth>();
    EXPECT_EQ(ftkSimGetFrameTruth(lib, serial, t.get()), ftkError::FTK_OK);
    return t;
}

uint32 Camera::option(const std::string& name) const {
    for (const OptionInfo& o : enumerateOptions(lib, serial)) {
        if (o.name == name) {
            return o.id;
        }
    }
    ADD_FAILURE() << "no option named \"" << name << "\"";
    return 0;
}

std::string Camera::errorText() const {
    char text[4096] = {};
    EXPECT_EQ(ftkGetLastErrorString(lib, sizeof(text), text), ftkError::FTK_OK);
    return text;
}

void Camera::registerDefaultMarkers() {
    EXPECT_EQ(setGeometry(makeGeometry(1000, Marker1000)), ftkError::FTK_OK);
    EXPECT_EQ(setGeometry(makeGeometry(1001, Marker1001)), ftkError::FTK_OK);
}

Enumeration enumerate(ftkLibrary lib) {
    Enumeration e;
    e.status = ftkEnumerateDevices(
        lib,
        [](uint64 sn, void* user, ftkDeviceType type) {
            static_cast<Enumeration*>(user)->devices.emplace_back(sn, type);
        },
        &e);
    return e;
}

std::vector<OptionInfo> enumerateOptions(ftkLibrary lib, uint64 serial, ftkError* status) {
    std::vector<OptionInfo> options;
    const ftkError s = ftkEnumerateOptions(
        lib, serial,
        [](uint64, void* user, ftkOptionsInfo* info) {
            static_cast<std::vector<OptionInfo>*>(user)->push_back(
                {info->id, static_cast<uint8>(info->type), info->name != nullptr, info->unit != nullptr,
                 info->name ? info->name : ""});
        },
        &options);
    if (status != nullptr) {
        *status = s;
    }
    return options;
}

ftkGeometry makeGeometry(uint32 id, const Points& points) {
    ftkGeometry g{};
    g.geometryId = id;
    g.pointsCount = static_cast<uint32>(points.size());
    for (std::size_t i = 0; i < points.size() && i < FTK_MAX_FIDUCIALS; ++i) {
        g.positions[i] = ftk3DPoint{points[i][0], points[i][1], points[i][2]};
    }
    return g;
}

template <class Item>
const Item* findById(const Item* items, uint32 count, uint32 geometryId) {
    const Item* found =
        std::find_if(items, items + count, [&](const Item& i) { return i.geometryId == geometryId; });
    return found == items + count ? nullptr : found;
}

const ftkMarker* findMarker(const ftkFrameQuery& frame, uint32 geometryId) {
    return findById<ftkMarker>(frame.markers, frame.markersCount, geometryId);
}

const ftkSimMarkerTruth* findTruth(const ftkSimFrameTruth& truth, uint32 geometryId) {
    return findById<ftkSimMarkerTruth>(truth.markers, truth.markersCount, geometryId);
}

double rotationErrorDeg(const ftkMarker& marker, const ftkSimMarkerTruth& truth) {
    Eigen::Matrix3d measured;
    Eigen::Matrix3d expected;
    for (int k = 0; k < 9; ++k) {
        measured(k / 3, k % 3) = marker.rotation[k / 3][k % 3];
        expected(k / 3, k % 3) = truth.rotation[k / 3][k % 3];
    }
    return Eigen::AngleAxisd(measured * expected.transpose()).angle() * 180.0 / M_PI;
}

} // namespace Kestrion::SimulatorTest
