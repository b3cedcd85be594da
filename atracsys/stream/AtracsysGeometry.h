#pragma once

#include <ftkInterface.h>

#include <Eigen/Core>

#include <memory>
#include <optional>
#include <string>

namespace Kestrion::SpryTrack {

/// The marker geometry of one tracking instrument: the INI file it came from, the SDK geometry
/// record read from it, whether the current device handle holds it, and the tool tip in the
/// marker's frame (millimetres) when the file has one (the SDK's record has no place for it).
class AtracsysGeometry {
public:
    AtracsysGeometry(std::string path, const ftkGeometry& geometry, bool onDevice)
        : m_path(std::move(path))
        , m_geometry(geometry)
        , m_onDevice(onDevice) {}

    std::unique_ptr<AtracsysGeometry> clone() const { return std::make_unique<AtracsysGeometry>(*this); }

    const std::string& path() const { return m_path; }
    const ftkGeometry& geometry() const { return m_geometry; }
    ftkGeometry& geometry() { return m_geometry; }

    /// True once ftkSetGeometry accepted the geometry for the current device handle; false again
    /// when the handle is closed, so that the next start pushes it anew.
    bool isOnDevice() const { return m_onDevice; }
    void setOnDevice(bool onDevice) { m_onDevice = onDevice; }

    const std::optional<Eigen::Vector3d>& tip() const { return m_tip; }
    void setTip(const std::optional<Eigen::Vector3d>& tip) { m_tip = tip; }

private:
    std::string m_path;
    ftkGeometry m_geometry;
    bool m_onDevice;
    std::optional<Eigen::Vector3d> m_tip;
};

/// Geometry ids up to 999 are reserved by the SDK for the device type named "SpryTrack": for that
/// device such a geometry is moved to id + 1000, with an error and a warning line. Other devices
/// and ids are left as they are. Returns true when the id was changed.
bool moveOutOfReservedIds(const std::string& deviceTypeName, ftkGeometry& geometry);

} // namespace Kestrion::SpryTrack
