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
/// no tip) and its raw fiducials not at all.
///
/// Drawn in a reference's frame (setReferenceFrame), the same scene is placed by the inverse of
/// the reference's pose: the reference at the origin, the other instruments by their poses and
/// tips in its frame as the frame's ReferencePoseData gives them (the instruments tracked in the
/// same frame as the reference), the camera, its volume and the raw fiducials where the reference
/// sees them. When the reference is not seen in a current frame, nothing can be placed: no
/// instrument, camera or volume is drawn and referenceSeen() says so. Plain data, built on the
/// GUI thread.
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

    /// Draws in the frame of that instrument ("": camera coordinates, the default).
    void setReferenceFrame(const std::string& instrumentId) { m_referenceId = instrumentId; }
    const std::string& referenceFrame() const { return m_referenceId; }
    /// Whether the last build could place the scene in the reference's frame (true in camera
    /// coordinates).
    bool referenceSeen() const { return m_referenceSeen; }

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
    /// The camera and its volume, placed by `placement` (camera coordinates to drawn ones).
    void addCamera(const Eigen::Matrix4d& placement);
    /// A tracked instrument: its fiducials (or origin) at `pose`, with its axes and tip.
    void addInstrument(const std::string& id, const Eigen::Matrix4d& pose, const Eigen::Vector3d* tip);
    /// The frame drawn in the reference's frame.
    void buildInReference(const TrackingStreamData& frame, bool current);

    std::optional<WorkingVolume> m_volume;
    std::map<std::string, std::vector<Eigen::Vector3d>> m_geometries;
    std::vector<Vertex> m_lines;
    std::vector<Vertex> m_points;
    std::vector<Vertex> m_rawPoints;
    std::size_t m_instrumentsDrawn = 0;
    std::size_t m_instrumentsLost = 0;
    std::string m_referenceId;
    bool m_referenceSeen = true;
};

} // namespace Kestrion
