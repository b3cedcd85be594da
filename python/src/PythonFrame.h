#pragma once

#include <Eigen/Core>

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {
class StreamData;
class TrackingStreamData;
class SharedImage;
} // namespace Kestrion

namespace Kestrion::Python {

/// One instrument of a frame, as Python sees it: everything read from the host's tracking data
/// and its components, with the host's one definition of "tracked".
struct PythonTool {
    std::string id;
    std::string name; ///< the user's name, else the id
    bool tracked = false;
    /// Camera frame, mm; NaN throughout while not tracked (an old or identity pose is never shown).
    Eigen::Matrix4d pose = Eigen::Matrix4d::Constant(std::numeric_limits<double>::quiet_NaN());
    double quality = 0.0;
    /// "tracked", "high error", ... and the reason in words; empty when the frame carries none.
    std::string status;
    std::string reason;
    double registrationErrorMm = std::numeric_limits<double>::quiet_NaN();
    std::optional<Eigen::Vector3d> tip;             ///< camera frame, mm
    std::optional<Eigen::Matrix4d> poseInReference; ///< with a reference seen in the same frame
};

/// One frame for Python: the host's data items, shared (never copied) for as long as Python keeps
/// the frame, read on access. Made from a tracking stream's item (a tracking frame, or a compound
/// of a tracking frame and camera images) or from a recorded frame.
class PythonFrame {
public:
    /// Null when the item holds no tracking frame.
    static std::shared_ptr<PythonFrame> fromStreamData(const std::shared_ptr<const StreamData>& data);
    PythonFrame(std::shared_ptr<const TrackingStreamData> tracking, std::shared_ptr<SharedImage> left,
                std::shared_ptr<SharedImage> right);

    const TrackingStreamData& tracking() const { return *m_tracking; }
    /// The device's frame counter, when the frame says.
    std::optional<std::uint32_t> counter() const;
    /// The frame's time (capture time when known, else arrival), microseconds since the epoch, UTC.
    std::uint64_t captureUs() const;
    std::uint64_t arrivalMs() const;
    /// The device's own timestamp of the frame (microseconds, its clock), when the frame says.
    std::optional<std::uint64_t> deviceUs() const;
    /// Name of the reference instrument, when the frame was given one.
    std::optional<std::string> referenceId() const;

    std::vector<PythonTool> tools() const;
    /// The raw 3D fiducials (x, y, z per fiducial, mm), contiguous; null without any.
    const double* fiducials(std::size_t& count) const;
    const std::shared_ptr<SharedImage>& leftImage() const { return m_left; }
    const std::shared_ptr<SharedImage>& rightImage() const { return m_right; }

    /// Registration errors of a recorded frame (by instrument id), for frames without the
    /// instruments' status.
    void setRecordedErrors(std::map<std::string, double> errors) { m_recordedErrors = std::move(errors); }

private:
    std::shared_ptr<const TrackingStreamData> m_tracking;
    std::shared_ptr<SharedImage> m_left;
    std::shared_ptr<SharedImage> m_right;
    std::map<std::string, double> m_recordedErrors;
};

} // namespace Kestrion::Python
