#include "atracsys/geometry-checks/AtracsysAmbiguityCheck.h"

#include <Eigen/LU>
#include <Eigen/SVD>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

namespace Kestrion::SpryTrack {

namespace {

using Kind = AmbiguityFinding::Kind;

/// A correspondence between fiducials of two geometries (or of one with itself) and how far the
/// distances it pairs lie apart at worst.
struct Correspondence {
    std::vector<int> first;
    std::vector<int> second;
    double worstMM = 0.0;
    int worstA = 0; // position in first/second of the worst pair's ends
    int worstB = 0;
};

double distance(const std::vector<Eigen::Vector3d>& points, int a, int b) {
    return (points[static_cast<std::size_t>(a)] - points[static_cast<std::size_t>(b)]).norm();
}

/// Fills the worst pair of `c`; false when some pair lies further apart than `limit`.
bool measure(const AmbiguityGeometry& first, const AmbiguityGeometry& second, Correspondence& c,
             double limit) {
    c.worstMM = 0.0;
    for (std::size_t a = 0; a < c.first.size(); ++a)
        for (std::size_t b = a + 1; b < c.first.size(); ++b) {
            const double deviation = std::abs(distance(first.points, c.first[a], c.first[b]) -
                                              distance(second.points, c.second[a], c.second[b]));
            if (deviation > limit)
                return false;
            if (deviation >= c.worstMM) {
                c.worstMM = deviation;
                c.worstA = static_cast<int>(a);
                c.worstB = static_cast<int>(b);
            }
        }
    return true;
}

/// RMS residual of the best rotation and translation (no reflection) of the corresponding points.
double properFitRms(const AmbiguityGeometry& first, const AmbiguityGeometry& second,
                    const Correspondence& c) {
    const std::size_t n = c.first.size();
    Eigen::Vector3d from = Eigen::Vector3d::Zero(), to = Eigen::Vector3d::Zero();
    for (std::size_t i = 0; i < n; ++i) {
        from += first.points[static_cast<std::size_t>(c.first[i])];
        to += second.points[static_cast<std::size_t>(c.second[i])];
    }
    from /= static_cast<double>(n);
    to /= static_cast<double>(n);
    Eigen::Matrix3d h = Eigen::Matrix3d::Zero();
    for (std::size_t i = 0; i < n; ++i)
        h += (first.points[static_cast<std::size_t>(c.first[i])] - from) *
             (second.points[static_cast<std::size_t>(c.second[i])] - to).transpose();
    Eigen::JacobiSVD<Eigen::Matrix3d> svd(h, Eigen::ComputeFullU | Eigen::ComputeFullV);
    Eigen::Matrix3d d = Eigen::Matrix3d::Identity();
    d(2, 2) = (svd.matrixV() * svd.matrixU().transpose()).determinant() < 0.0 ? -1.0 : 1.0;
    const Eigen::Matrix3d rotation = svd.matrixV() * d * svd.matrixU().transpose();
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i)
        sum += (rotation * (first.points[static_cast<std::size_t>(c.first[i])] - from) -
                (second.points[static_cast<std::size_t>(c.second[i])] - to))
                   .squaredNorm();
    return std::sqrt(sum / static_cast<double>(n));
}

std::string indices(const std::vector<int>& list) {
    std::string text;
    for (int i : list)
        text += (text.empty() ? "" : ", ") + std::to_string(i);
    return text;
}

/// "(fiducial0-fiducial2 72.80 mm against fiducial1-fiducial0 73.00 mm)"
std::string worstPair(const AmbiguityGeometry& first, const AmbiguityGeometry& second,
                      const Correspondence& c) {
    const int a1 = c.first[static_cast<std::size_t>(c.worstA)],
              b1 = c.first[static_cast<std::size_t>(c.worstB)];
    const int a2 = c.second[static_cast<std::size_t>(c.worstA)],
              b2 = c.second[static_cast<std::size_t>(c.worstB)];
    char text[160];
    std::snprintf(text, sizeof text, "fiducial%d-fiducial%d %.2f mm against fiducial%d-fiducial%d %.2f mm",
                  a1, b1, distance(first.points, a1, b1), a2, b2, distance(second.points, a2, b2));
    return text;
}

std::string millimetres(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f mm", value);
    return text;
}

/// Every permutation of `second`'s fiducials put against all of `first`'s (same count) that pairs
/// their distances within the tolerance; `visit` returns false to stop.
template <class Visit>
void forEachFullMatch(const AmbiguityGeometry& first, const AmbiguityGeometry& second, double tolerance,
                      Visit visit) {
    Correspondence c;
    c.first.resize(first.points.size());
    std::iota(c.first.begin(), c.first.end(), 0);
    c.second = c.first;
    do {
        if (measure(first, second, c, tolerance) && !visit(c))
            return;
    } while (std::next_permutation(c.second.begin(), c.second.end()));
}

} // namespace

AtracsysAmbiguityCheck::AtracsysAmbiguityCheck(double toleranceMM, double fiducialDiameterMM)
    : m_tolerance(toleranceMM)
    , m_diameter(fiducialDiameterMM) {}

std::vector<AmbiguityFinding> AtracsysAmbiguityCheck::checkAlone(const AmbiguityGeometry& geometry) const {
    std::vector<AmbiguityFinding> findings;
    const int n = static_cast<int>(geometry.points.size());
    // The closest two fiducials, when they would merge in the images.
    int closeA = -1, closeB = -1;
    for (int a = 0; a < n; ++a)
        for (int b = a + 1; b < n; ++b)
            if (distance(geometry.points, a, b) < m_diameter &&
                (closeA < 0 || distance(geometry.points, a, b) < distance(geometry.points, closeA, closeB))) {
                closeA = a;
                closeB = b;
            }
    if (closeA >= 0)
        findings.push_back({Kind::CloseFiducials, geometry.file, geometry.file,
                            geometry.file + ": fiducial" + std::to_string(closeA) + " and fiducial" +
                                std::to_string(closeB) + " are " +
                                millimetres(distance(geometry.points, closeA, closeB)) +
                                " apart, closer than a fiducial's diameter of " + millimetres(m_diameter)});
    if (n < 3 || n > 8)
        return findings;
    // Exchanged fiducials that a rotation maps onto the geometry itself: the camera cannot tell
    // which way round the marker is.
    forEachFullMatch(geometry, geometry, m_tolerance, [&](const Correspondence& c) {
        if (c.first == c.second || properFitRms(geometry, geometry, c) > m_tolerance)
            return true;
        findings.push_back({Kind::Symmetric, geometry.file, geometry.file,
                            geometry.file + " is symmetric: its fiducials " + indices(c.first) +
                                " match themselves as " + indices(c.second) + " (distances at most " +
                                millimetres(c.worstMM) + " apart: " + worstPair(geometry, geometry, c) +
                                "), so its pose can flip"});
        return false;
    });
    return findings;
}

std::optional<AmbiguityFinding> AtracsysAmbiguityCheck::checkPair(const AmbiguityGeometry& first,
                                                                  const AmbiguityGeometry& second) const {
    const char* toleranceText = "Distance matching tolerance";
    if (first.points.size() == second.points.size() && first.points.size() >= 4 && first.points.size() <= 8) {
        // All fiducials at the same distances: the same marker, or its mirror image when no
        // rotation maps one onto the other.
        std::optional<Correspondence> same, mirrored;
        forEachFullMatch(first, second, m_tolerance, [&](const Correspondence& c) {
            if (properFitRms(first, second, c) <= m_tolerance)
                same = c;
            else if (!mirrored)
                mirrored = c;
            return !same;
        });
        if (!same && mirrored)
            return AmbiguityFinding{
                Kind::Mirrored, first.file, second.file,
                first.file + " is the mirror image of " + second.file + ": fiducials " +
                    indices(mirrored->first) + " of " + first.file + " and " + indices(mirrored->second) +
                    " of " + second.file + " lie at the same distances (at most " +
                    millimetres(mirrored->worstMM) + " apart: " + worstPair(first, second, *mirrored) +
                    ") but no rotation maps one onto the other"};
    }
    // All fiducials alike (the same marker twice), else the three of each that agree best.
    std::optional<Correspondence> best;
    if (first.points.size() == second.points.size() && first.points.size() >= 3 && first.points.size() <= 8)
        forEachFullMatch(first, second, m_tolerance, [&](const Correspondence& c) {
            if (properFitRms(first, second, c) <= m_tolerance && (!best || c.worstMM < best->worstMM))
                best = c;
            return true;
        });
    Correspondence c;
    c.first.resize(3);
    c.second.resize(3);
    const int n = static_cast<int>(first.points.size()), m = static_cast<int>(second.points.size());
    for (int i = 0; i < n && !best; ++i)
        for (int j = i + 1; j < n; ++j)
            for (int k = j + 1; k < n; ++k)
                for (int p = 0; p < m; ++p)
                    for (int q = 0; q < m; ++q)
                        for (int r = 0; r < m; ++r) {
                            if (p == q || p == r || q == r)
                                continue;
                            c.first = {i, j, k};
                            c.second = {p, q, r};
                            if (measure(first, second, c, m_tolerance) &&
                                (!best || c.worstMM < best->worstMM))
                                best = c;
                        }
    if (!best)
        return std::nullopt;
    return AmbiguityFinding{Kind::Confusable, first.file, second.file,
                            first.file + " and " + second.file + " could be confused: fiducials " +
                                indices(best->first) + " of " + first.file +
                                " lie at the distances of fiducials " + indices(best->second) + " of " +
                                second.file + " (at most " + millimetres(best->worstMM) +
                                " apart: " + worstPair(first, second, *best) + "; " + toleranceText + " " +
                                millimetres(m_tolerance) + ")"};
}

std::vector<AmbiguityFinding>
AtracsysAmbiguityCheck::check(const AmbiguityGeometry& geometry,
                              const std::vector<AmbiguityGeometry>& others) const {
    std::vector<AmbiguityFinding> findings = checkAlone(geometry);
    for (const AmbiguityGeometry& other : others)
        if (auto finding = checkPair(geometry, other))
            findings.push_back(std::move(*finding));
    return findings;
}

} // namespace Kestrion::SpryTrack
