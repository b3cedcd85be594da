// The ambiguity checks of marker geometries: pairs the camera could confuse, mirror images,
// symmetric markers and fiducials closer than a sphere's diameter.

#include "atracsys/geometry-checks/AtracsysAmbiguityCheck.h"

#include <gtest/gtest.h>

using namespace Kestrion::SpryTrack;
using Kind = AmbiguityFinding::Kind;

namespace {

const AmbiguityGeometry Handed{"handed.ini", {{0, 0, 0}, {70, 0, 0}, {20, 55, 0}, {35, 25, 40}}};
const AmbiguityGeometry Mirrored{"mirrored.ini", {{0, 0, 0}, {-70, 0, 0}, {-20, 55, 0}, {-35, 25, 40}}};

std::vector<Kind> kinds(const std::vector<AmbiguityFinding>& findings) {
    std::vector<Kind> result;
    for (const auto& finding : findings)
        result.push_back(finding.kind);
    return result;
}

} // namespace

TEST(AmbiguityCheck, MirrorImagesAndSharedTrianglesBetweenTwoGeometries) {
    const AtracsysAmbiguityCheck check(1.0);
    const auto mirrored = check.checkPair(Mirrored, Handed);
    ASSERT_TRUE(mirrored);
    EXPECT_EQ(mirrored->kind, Kind::Mirrored);
    EXPECT_EQ(mirrored->text,
              "mirrored.ini is the mirror image of handed.ini: fiducials 0, 1, 2, 3 of mirrored.ini "
              "and 0, 1, 2, 3 of handed.ini lie at the same distances (at most 0.00 mm apart: "
              "fiducial2-fiducial3 52.20 mm against fiducial2-fiducial3 52.20 mm) but no rotation "
              "maps one onto the other");
    EXPECT_FALSE(check.checkPair(Handed, Handed)->kind == Kind::Mirrored)
        << "the same marker is not its mirror";

    // A marker that shares fiducials 0, 1, 2 with Handed, 0.8 mm off at most, and differs beyond.
    AmbiguityGeometry sharing{"sharing.ini", {{0, 0, 0}, {70.8, 0, 0}, {20, 55, 0}, {-30, -40, 10}}};
    const auto confusable = check.checkPair(sharing, Handed);
    ASSERT_TRUE(confusable);
    EXPECT_EQ(confusable->kind, Kind::Confusable);
    EXPECT_EQ(confusable->text,
              "sharing.ini and handed.ini could be confused: fiducials 0, 1, 2 of sharing.ini lie "
              "at the distances of fiducials 0, 1, 2 of handed.ini (at most 0.80 mm apart: "
              "fiducial0-fiducial1 70.80 mm against fiducial0-fiducial1 70.00 mm; Distance "
              "matching tolerance 1.00 mm)");
    EXPECT_FALSE(AtracsysAmbiguityCheck(0.5).checkPair(sharing, Handed)) << "beyond a tighter tolerance";
}

TEST(AmbiguityCheck, SymmetricGeometriesAndFiducialsTooClose) {
    const AtracsysAmbiguityCheck check(1.0);
    const AmbiguityGeometry rectangle{"rectangle.ini", {{0, 0, 0}, {80, 0, 0}, {80, 50, 0}, {0, 50, 0}}};
    const auto findings = check.checkAlone(rectangle);
    ASSERT_EQ(kinds(findings), std::vector<Kind>{Kind::Symmetric});
    EXPECT_EQ(findings[0].text,
              "rectangle.ini is symmetric: its fiducials 0, 1, 2, 3 match themselves as 1, 0, 3, "
              "2 (distances at most 0.00 mm apart: fiducial2-fiducial3 80.00 mm against "
              "fiducial3-fiducial2 80.00 mm), so its pose can flip");
    // Two sides of a triangle within the tolerance of each other: it can be matched both ways.
    EXPECT_EQ(kinds(check.checkAlone({"isosceles.ini", {{0, 0, 0}, {60, 0, 0}, {30.4, 50, 0}}})),
              std::vector<Kind>{Kind::Symmetric});
    EXPECT_TRUE(check.checkAlone({"scalene.ini", {{0, 0, 0}, {60, 0, 0}, {20, 50, 0}}}).empty());
    EXPECT_TRUE(check.checkAlone(Handed).empty());

    const auto close = check.checkAlone({"close.ini", {{0, 0, 0}, {60, 0, 0}, {20, 50, 0}, {26, 52, 0}}});
    ASSERT_EQ(kinds(close), std::vector<Kind>{Kind::CloseFiducials});
    EXPECT_EQ(close[0].text, "close.ini: fiducial2 and fiducial3 are 6.32 mm apart, closer than a fiducial's "
                             "diameter of 11.50 mm");
    // check(): the geometry alone, then against each other one.
    EXPECT_EQ(kinds(check.check(Mirrored, {Handed, rectangle})), std::vector<Kind>{Kind::Mirrored});
}
