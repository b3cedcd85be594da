#pragma once

#include <Eigen/Core>

#include <random>
#include <vector>

namespace Kestrion::OptimizationTest {

using Points = std::vector<Eigen::Vector3d>;

/// A four-fiducial marker without symmetry (all six distances differ by more than 5 mm), in its
/// own frame, millimetres.
Points asymmetricMarker();

/// `points` with every coordinate moved by a uniform error in [-amplitude, amplitude]: a marker as
/// manufactured, against the geometry file it was built from.
Points perturbed(const Points& points, double amplitude, std::mt19937& rng);

/// A random pose facing the camera about 1 m away (rotations up to ~30 degrees).
Eigen::Matrix4d randomPose(std::mt19937& rng);

/// The marker seen in `pose`, each fiducial with Gaussian noise of `sigma` per coordinate.
Points observe(const Points& marker, const Eigen::Matrix4d& pose, double sigma, std::mt19937& rng);

/// RMS distance between a and b (point i to point i) after the rigid alignment of a onto b.
double alignedRms(const Points& a, const Points& b);

/// RMS distance between a and b without alignment.
double rms(const Points& a, const Points& b);

Points reordered(const Points& points, const std::vector<int>& order);

} // namespace Kestrion::OptimizationTest
