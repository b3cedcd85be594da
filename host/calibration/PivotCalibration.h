#pragma once

#include <Eigen/Core>

#include <cstddef>
#include <string>
#include <vector>

namespace Kestrion {

/// Finds a tool's tip from poses recorded while the tool pivots about it: the tip stays at one
/// point of the camera's space (the pivot point) while the marker turns around it, so every pose
/// (R_i, t_i) satisfies R_i * tipInMarker + t_i = pivotInCamera. Stacked for all frames this is
/// the linear system [R_i | -I] [tip; pivot] = -t_i, solved by least squares; frames whose
/// residual lies far above the others' are dropped (and counted) and the system solved again.
///
/// A recording that cannot determine the tip is refused with the reason instead of a result: too
/// few frames, a tool that never moved, a tool moved without turning about a fixed point, too
/// little angular spread, turns about a single axis only, or residuals too large for a fixed tip.
class PivotCalibration {
public:
    struct Settings {
        std::size_t minFrames = 20;
        /// Least angle between the most different recorded orientations.
        double minSpreadDeg = 20.0;
        /// A frame is dropped when its residual exceeds this many times the median residual (and
        /// outlierFloorMM, below which residuals are noise whatever the median).
        double outlierFactor = 3.0;
        double outlierFloorMM = 0.05;
        /// Largest RMS residual of a tool that turned about a fixed tip.
        double maxRmsMM = 1.5;
        /// Least ratio of the smallest to the largest singular value of the stacked system: below
        /// it the orientations leave a direction of the tip undetermined.
        double rankCutoff = 0.01;
    };

    enum class Outcome { Solved, TooFewFrames, NeverMoved, Translated, SmallSpread, SingleAxis, NoFixedTip };

    struct Result {
        Outcome outcome = Outcome::TooFewFrames;
        /// Why the recording was refused, for the user; empty when solved.
        std::string refusal;
        Eigen::Vector3d tipInMarker = Eigen::Vector3d::Zero();
        Eigen::Vector3d pivotInCamera = Eigen::Vector3d::Zero();
        /// Root mean square of the distances between the pivot point and where the used frames put
        /// the tip, in millimetres.
        double rmsMM = 0.0;
        std::size_t usedFrames = 0;
        std::size_t rejectedFrames = 0;
        /// Angle between the two most different recorded orientations, in degrees.
        double spreadDeg = 0.0;

        bool solved() const { return outcome == Outcome::Solved; }
    };

    PivotCalibration();
    explicit PivotCalibration(Settings settings);

    /// Solves for `poses` (4x4, rotation and translation in millimetres). A refusal is also
    /// logged at warning level ("Pivot calibration refused: " and the reason).
    Result solve(const std::vector<Eigen::Matrix4d>& poses);

    /// The widest angle between two of the orientations in degrees: from the orientation farthest
    /// from their mean, the largest angle to any other (exact for cones and arcs, and never more
    /// than twice off otherwise). Linear in the number of poses.
    static double angularSpreadDeg(const std::vector<Eigen::Matrix4d>& poses);

private:
    bool solveFrames(const std::vector<Eigen::Matrix4d>& poses, Result& result) const;
    Result refuse(Result result, Outcome outcome, const std::string& reason) const;

    Settings m_settings;
    std::vector<char> m_used;        // per frame: still in the solve
    std::vector<double> m_residuals; // per frame, of the last solve
    std::vector<double> m_sorted;    // residuals of the used frames, for the median
};

} // namespace Kestrion
