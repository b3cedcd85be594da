// The instrument status evaluator on synthetic frames: geometries placed at a pose, fiducials
// hidden, moved or shared, and the reasons given for each.

#include "atracsys/status/AtracsysInstrumentStatusEvaluator.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>

#include <cmath>

using namespace Kestrion;
using namespace Kestrion::SpryTrack;
using State = InstrumentStatusData::State;

namespace {

StatusInstrument instrument(const std::string& id, std::uint32_t geometryId,
                            std::vector<Eigen::Vector3d> points) {
    StatusInstrument result;
    result.id = id;
    result.geometryId = geometryId;
    result.onCamera = true;
    result.pointCount = static_cast<std::uint32_t>(points.size());
    for (std::size_t i = 0; i < points.size(); ++i)
        result.points[i] = points[i];
    return result;
}

const StatusInstrument Triangle = instrument("atracsys-1101", 1101, {{0, 0, 0}, {62, 0, 0}, {20, 35, 0}});
const StatusInstrument Square =
    instrument("atracsys-1104", 1104, {{0, 0, 0}, {50, 10, 0}, {20, 70, 0}, {80, 60, 10}});

/// Appends the instrument's points, seen at a tilted pose around `at`, to the frame's fiducials
/// (all but `hidden`); returns their fiducial indices (StatusNoFiducial for hidden ones).
std::vector<std::uint32_t> place(StatusFrame& frame, const StatusInstrument& geometry,
                                 const Eigen::Vector3d& at, std::vector<std::uint32_t> hidden = {}) {
    const Eigen::Matrix3d rotation =
        (Eigen::AngleAxisd(0.3, Eigen::Vector3d::UnitX()) * Eigen::AngleAxisd(-0.5, Eigen::Vector3d::UnitY()))
            .toRotationMatrix();
    std::vector<std::uint32_t> indices;
    for (std::uint32_t q = 0; q < geometry.pointCount; ++q) {
        if (std::find(hidden.begin(), hidden.end(), q) != hidden.end()) {
            indices.push_back(StatusNoFiducial);
            continue;
        }
        indices.push_back(static_cast<std::uint32_t>(frame.fiducials.size()));
        frame.fiducials.push_back(rotation * geometry.points[q] + at);
    }
    return indices;
}

StatusMarker marker(std::uint32_t geometryId, double errorMM, const std::vector<std::uint32_t>& fiducials) {
    StatusMarker result;
    result.geometryId = geometryId;
    result.registrationErrorMM = errorMM;
    for (std::size_t q = 0; q < fiducials.size(); ++q)
        result.fiducials[q] = fiducials[q];
    return result;
}

std::vector<InstrumentStatusData::Entry> evaluate(const StatusFrame& frame,
                                                  const std::vector<StatusInstrument>& instruments) {
    AtracsysInstrumentStatusEvaluator evaluator;
    std::vector<InstrumentStatusData::Entry> entries;
    evaluator.evaluate(frame, instruments, {1.0, 0.5}, entries);
    return entries;
}

} // namespace

TEST(InstrumentStatusEvaluator, TrackedInstrumentsByRegistrationErrorAndHiddenFiducials) {
    StatusFrame frame;
    const auto square = place(frame, Square, {0, 0, 900}, {2});
    const auto triangle = place(frame, Triangle, {200, 0, 900});
    frame.markers = {marker(1104, 0.5, square), marker(1101, 0.73, triangle)};
    const auto entries = evaluate(frame, {Square, Triangle});
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].state, State::Tracked) << "the threshold itself is not above it";
    EXPECT_EQ(entries[0].reason, "tracked, registration error 0.50 mm, fiducials hidden: 2");
    EXPECT_EQ(entries[0].fiducialsFound, 3u);
    EXPECT_EQ(entries[0].fiducialsExpected, 4u);
    EXPECT_EQ(entries[1].state, State::TrackedHighError);
    EXPECT_EQ(entries[1].reason, "tracked, registration error 0.73 mm above the threshold of 0.50 mm");
    EXPECT_DOUBLE_EQ(entries[1].registrationErrorMm, 0.73);
}

TEST(InstrumentStatusEvaluator, UntrackedInstrumentsSayWhatTheFrameShows) {
    StatusFrame frame;
    place(frame, Square, {0, 0, 900}, {0, 3}); // two of four fiducials
    // The triangle's fiducial 2 moved by 2 mm away from fiducial 0: twice the tolerance.
    const auto moved = place(frame, Triangle, {300, 0, 900});
    const Eigen::Vector3d away = (frame.fiducials[moved[2]] - frame.fiducials[moved[0]]).normalized();
    frame.fiducials[moved[2]] += 2.0 * away;
    frame.fiducials.push_back({-400, 300, 1500}); // a stray far from everything
    StatusInstrument inactive = Triangle;
    inactive.id = "atracsys-7";
    inactive.active = false;
    StatusInstrument refused = instrument("atracsys-1103", 1103, {{0, 0, 0}, {50, 0, 0}});
    refused.onCamera = false;
    StatusInstrument pending = Square;
    pending.onCamera = false;
    const StatusInstrument absent = instrument("atracsys-1102", 1102, {{0, 0, 0}, {75, 0, 0}, {25, 90, 0}});

    const auto entries = evaluate(frame, {Square, Triangle, inactive, refused, pending, absent});
    ASSERT_EQ(entries.size(), 6u);
    EXPECT_EQ(entries[0].state, State::PartlySeen);
    EXPECT_EQ(entries[0].reason, "fiducials 1, 2 of 4 found; 0, 3 missing");
    EXPECT_EQ(entries[0].fiducialsFound, 2u);
    EXPECT_EQ(entries[1].state, State::Unmatched);
    EXPECT_EQ(
        entries[1].reason,
        "fiducials 0, 1, 2 nearly at the geometry's distances, not matched: fiducial0-fiducial2 measures "
        "42.31 mm, 2.00 mm off the geometry's 40.31 mm (Distance matching tolerance 1.00 mm)");
    EXPECT_EQ(entries[2].state, State::Inactive);
    EXPECT_EQ(entries[2].reason, "inactive");
    EXPECT_EQ(entries[3].state, State::NotOnCamera);
    EXPECT_EQ(entries[3].reason, "not on the camera: refused, 2 fiducials, at least 3 needed");
    EXPECT_EQ(entries[4].reason, "not on the camera: refused or not yet registered");
    EXPECT_EQ(entries[5].state, State::NotInView);
    EXPECT_EQ(entries[5].reason, "no fiducial of the geometry in view");
    EXPECT_TRUE(std::isnan(entries[5].registrationErrorMm));
}

TEST(InstrumentStatusEvaluator, FiducialsOfAnotherMarkerAreNamedNotCountedAsPartlySeen) {
    StatusFrame frame;
    const auto square = place(frame, Square, {0, 0, 900});
    frame.markers = {marker(1104, 0.1, square)};
    // A geometry 0.2 mm from the tracked one: its fiducials are the other marker's.
    StatusInstrument twin = Square;
    twin.id = "atracsys-1105";
    twin.geometryId = 1105;
    twin.points[3].x() += 0.2;
    // A geometry that shares one distance with the tracked marker (fiducials 0 and 1) and no more.
    const StatusInstrument pair = instrument("atracsys-1106", 1106, {{0, 0, 0}, {0, 51, 0}, {-90, 0, 0}});
    const auto entries = evaluate(frame, {Square, twin, pair});
    EXPECT_EQ(entries[1].state, State::Unmatched);
    EXPECT_EQ(entries[1].reason,
              "fiducials 0, 1, 2, 3 at the geometry's distances are taken by atracsys-1104");
    EXPECT_EQ(entries[2].state, State::NotInView) << entries[2].reason;
}

TEST(InstrumentStatusEvaluator, BuffersAreReusedAcrossFrames) {
    StatusFrame frame;
    place(frame, Square, {0, 0, 900}, {0, 3});
    AtracsysInstrumentStatusEvaluator evaluator;
    std::vector<InstrumentStatusData::Entry> entries;
    evaluator.evaluate(frame, {Square, Triangle}, {1.0, 0.5}, entries);
    ASSERT_EQ(entries.size(), 2u);
    const std::string reason = entries[0].reason;
    const char* kept = entries[0].reason.data();
    evaluator.evaluate(frame, {Square, Triangle}, {1.0, 0.5}, entries);
    EXPECT_EQ(entries[0].reason, reason) << "the same frame gives the same reason";
    EXPECT_EQ(entries[0].reason.data(), kept) << "the text's buffer is kept";
    evaluator.evaluate(StatusFrame(), {Triangle}, {1.0, 0.5}, entries);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].state, State::NotInView);
}
