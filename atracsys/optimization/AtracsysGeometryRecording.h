#pragma once

#include <Eigen/Core>

#include <cstddef>
#include <vector>

namespace Kestrion {

/// The fiducial observations of one marker collected for a geometry refinement: per accepted
/// frame the fiducial positions in slot order (slot j is the same physical fiducial in every
/// frame), the frame's error and one error per fiducial (same slot order).
///
/// Not thread-safe: the owner serialises the writer (the stream's thread while recording) and the
/// readers (the solve, once recording has ended).
class AtracsysGeometryRecording {
public:
    using Points = std::vector<Eigen::Vector3d>;

    /// Drops every frame; keeps room for `expectedFrames` frames so that appending does not move
    /// the recorded frames around while recording.
    void clear(std::size_t expectedFrames = 0);

    void append(const Points& points, double frameError, const std::vector<double>& fiducialErrors);

    std::size_t size() const { return m_frames.size(); }
    bool empty() const { return m_frames.empty(); }

    const std::vector<Points>& frames() const { return m_frames; }
    const std::vector<double>& frameErrors() const { return m_frameErrors; }
    const std::vector<std::vector<double>>& fiducialErrors() const { return m_fiducialErrors; }

    /// Multiplies every recorded position by `factor`, in place.
    void scale(double factor);

    /// Index of the first frame with the smallest frame error (strict comparison from frame 0);
    /// 0 when the recording is empty.
    std::size_t bestFrame() const;

    /// Puts the fiducials of a new frame into slots. Without a recorded frame the slots follow the
    /// order of `positions`. Otherwise a position goes to slot j when it lies closer than
    /// `radius` to slot j of the last recorded frame; a slot reached twice keeps the later
    /// position (and the clash is logged). `slotPoints`, `slotErrors` and `filled` are resized to
    /// the slot count (the last frame's fiducial count, or positions.size() for the first frame)
    /// and reused across calls. Returns the number of slots filled.
    std::size_t assignSlots(const Points& positions, const std::vector<double>& errors, double radius,
                            Points& slotPoints, std::vector<double>& slotErrors,
                            std::vector<char>& filled) const;

private:
    std::vector<Points> m_frames;
    std::vector<double> m_frameErrors;
    std::vector<std::vector<double>> m_fiducialErrors;
};

} // namespace Kestrion
