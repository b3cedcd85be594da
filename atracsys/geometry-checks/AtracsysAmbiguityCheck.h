#pragma once

#include <Eigen/Core>

#include <optional>
#include <string>
#include <vector>

namespace Kestrion::SpryTrack {

/// Log category of the ambiguity warnings of the plugin (the host's check-geometry command reads
/// them).
constexpr const char* AmbiguityCategory = "AtracsysAmbiguityCheck";

/// A marker geometry to check: its file (as the user named it) and its fiducials (mm).
struct AmbiguityGeometry {
    std::string file;
    std::vector<Eigen::Vector3d> points;
};

/// Something about marker geometries that lets the camera confuse them.
struct AmbiguityFinding {
    enum class Kind {
        Confusable,     ///< three fiducials of one lie at the distances of three of the other
        Mirrored,       ///< one is the mirror image of the other
        Symmetric,      ///< the geometry matches itself with its fiducials exchanged: its pose can flip
        CloseFiducials, ///< two fiducials closer than a fiducial's diameter
    };
    Kind kind;
    std::string first;
    std::string second; ///< the same as first for the findings about one geometry
    /// One line for the user, naming both files and the closest distance pair.
    std::string text;
};

/// Compares marker geometries the way the camera tells them apart: by the distances between
/// their fiducials, within the "Distance matching tolerance". No camera types; small geometries
/// (up to six fiducials) are compared exhaustively.
class AtracsysAmbiguityCheck {
public:
    /// A passive sphere's diameter, for fiducials that would merge in the camera's images.
    static constexpr double DefaultFiducialDiameterMM = 11.5;

    AtracsysAmbiguityCheck(double toleranceMM, double fiducialDiameterMM = DefaultFiducialDiameterMM);

    /// The findings about one geometry: symmetric, fiducials too close to each other.
    std::vector<AmbiguityFinding> checkAlone(const AmbiguityGeometry& geometry) const;
    /// The finding about two geometries (mirrored, else confusable), if any.
    std::optional<AmbiguityFinding> checkPair(const AmbiguityGeometry& first,
                                              const AmbiguityGeometry& second) const;
    /// checkAlone of `geometry`, then checkPair of it with each of `others` in order.
    std::vector<AmbiguityFinding> check(const AmbiguityGeometry& geometry,
                                        const std::vector<AmbiguityGeometry>& others) const;

private:
    double m_tolerance;
    double m_diameter;
};

} // namespace Kestrion::SpryTrack
