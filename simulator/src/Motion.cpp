#include "simulator/src/Motion.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::Simulator {

namespace {

constexpr double DegToRad = M_PI / 180.0;

Eigen::Isometry3d makePose(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& translation) {
    Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();
    pose.linear() = rotation;
    pose.translation() = translation;
    return pose;
}

} // namespace

Eigen::Matrix3d Motion::rotationFromDegrees(const Eigen::Vector3d& degrees) {
    return (Eigen::AngleAxisd(degrees.z() * DegToRad, Eigen::Vector3d::UnitZ()) *
            Eigen::AngleAxisd(degrees.y() * DegToRad, Eigen::Vector3d::UnitY()) *
            Eigen::AngleAxisd(degrees.x() * DegToRad, Eigen::Vector3d::UnitX()))
        .toRotationMatrix();
}

Eigen::Isometry3d Motion::poseAt(double timeS) const {
    const Eigen::Matrix3d base = rotationFromDegrees(rotationDeg);
    const double phase = 2.0 * M_PI * timeS / periodS + phaseDeg * DegToRad;
    switch (kind) {
    case Kind::Static:
        return makePose(base, position);
    case Kind::Orbit: {
        const Eigen::Vector3d n = axis.normalized();
        // Any unit vector orthogonal to the axis, then the third completing the plane basis.
        Eigen::Vector3d u = n.unitOrthogonal();
        const Eigen::Vector3d v = n.cross(u);
        const Eigen::Vector3d p = position + radiusMM * (std::cos(phase) * u + std::sin(phase) * v);
        const Eigen::Matrix3d wobble = rotationFromDegrees(amplitudeDeg * std::sin(phase));
        return makePose(wobble * base, p);
    }
    case Kind::Sinusoid: {
        const double s = std::sin(phase);
        const Eigen::Matrix3d wobble = rotationFromDegrees(amplitudeDeg * s);
        return makePose(wobble * base, position + amplitudeMM * s);
    }
    case Kind::Pivot: {
        // Tilted about an axis across the camera's line of sight, so the marker keeps facing it.
        const Eigen::Vector3d across(std::cos(phase), std::sin(phase), 0.0);
        const Eigen::Matrix3d rotation = Eigen::AngleAxisd(coneDeg * DegToRad, across) * base;
        return makePose(rotation, pivotPoint - rotation * tip);
    }
    case Kind::Trajectory: {
        if (samples.empty()) {
            return makePose(base, position);
        }
        const double first = samples.front().timeS;
        const double last = samples.back().timeS;
        double t = timeS;
        if (t > last) {
            t = (loop && last > first) ? first + std::fmod(t - first, last - first) : last;
        }
        if (t <= first) {
            return makePose(samples.front().rotation.toRotationMatrix(), samples.front().position);
        }
        const auto next = std::upper_bound(samples.begin(), samples.end(), t,
                                           [](double value, const Sample& s) { return value < s.timeS; });
        if (next == samples.end()) {
            return makePose(samples.back().rotation.toRotationMatrix(), samples.back().position);
        }
        const Sample& b = *next;
        const Sample& a = *(next - 1);
        const double span = b.timeS - a.timeS;
        const double w = span > 0.0 ? (t - a.timeS) / span : 1.0;
        return makePose(a.rotation.slerp(w, b.rotation).toRotationMatrix(),
                        (1.0 - w) * a.position + w * b.position);
    }
    }
    return makePose(base, position);
}

} // namespace Kestrion::Simulator
