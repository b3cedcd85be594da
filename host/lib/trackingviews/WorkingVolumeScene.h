#pragma once

#include "host/stream/WorkingVolume.h"

#include <Eigen/Core>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {

class TrackingStreamData;

/// What the 3D view draws for a tracking frame, in the camera's coordinates (mm): the camera, its
/// working volume when known, each tracked instrument as its marker's fiducials (from the
/// geometry, placed by the pose) and its axes, its tip when the frame gives one, and the raw
/// fiducials when the frame carries them. Whether an instrument is tracked is the host's predicate
/// (isInstrumentTracked); a frame that is not current (the stream stopped delivering) shows no
/// tracked instrument: the instruments it had tracked are drawn as lost (grey fiducials, no axes,
/// no tip) and its raw fiducials not at all. Plain data, built on the GUI thread.
class WorkingVolumeScene {
public:
    struct Vertex {
        Eigen::Vector3f position;
        Eigen::Vector3f colour;
    };
    /// The colours of the scene's parts, for the view and its tests.
    static const Eigen::Vector3f CameraColour, VolumeColour, MarkerColour, TipColour, RawFiducialColour,
        LostColour;
    /// Length of the drawn instrument axes, mm.
    static constexpr float AxisLengthMM = 50.0f;

    void setVolume(std::optional<WorkingVolume> volume) { m_volume = volume; }
    const std::optional<WorkingVolume>& volume() const { return m_volume; }
    /// The fiducials of an instrument in its own frame; instruments without one get their origin.
    void setGeometry(const std::string& instrumentId, std::vector<Eigen::Vector3d> fiducials);
    bool hasGeometry(const std::string& instrumentId) const { return m_geometries.count(instrumentId) > 0; }

    /// Builds the lines and points for the frame (the camera and volume alone without a frame);
    /// `current` false: the frame is the last one of a stream that no longer delivers.
    void build(const TrackingStreamData* frame, bool current = true);

    /// Pairs of vertices, one line each.
    const std::vector<Vertex>& lines() const { return m_lines; }
    /// Large points: marker fiducials and tips.
    const std::vector<Vertex>& points() const { return m_points; }
    /// Small points: raw fiducials.
    const std::vector<Vertex>& rawPoints() const { return m_rawPoints; }
    /// Instruments drawn as tracked in the last build.
    std::size_t instrumentsDrawn() const { return m_instrumentsDrawn; }
    /// Instruments drawn as lost in the last build (tracked in a frame that is no longer current).
    std::size_t instrumentsLost() const { return m_instrumentsLost; }

private:
    void addLine(const Eigen::Vector3d& a, const Eigen::Vector3d& b, const Eigen::Vector3f& colour);

    std::optional<WorkingVolume> m_volume;
    std::map<std::string, std::vector<Eigen::Vector3d>> m_geometries;
    std::vector<Vertex> m_lines;
    std::vector<Vertex> m_points;
    std::vector<Vertex> m_rawPoints;
    std::size_t m_instrumentsDrawn = 0;
    std::size_t m_instrumentsLost = 0;
};

} // namespace Kestrion
