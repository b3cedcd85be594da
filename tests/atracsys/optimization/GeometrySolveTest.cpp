// The solve on recordings filled directly, against a known true geometry.
#include "atracsys/optimization/AtracsysGeometryOptimizationAlgorithm.h"
#include "host/core/Math.h"
#include "tests/atracsys/optimization/SyntheticMarker.h"
#include "tests/support/LogCapture.h"
#include "tests/support/allocation/AllocationCounter.h"

#include <gtest/gtest.h>

#include <random>

namespace Kestrion {
namespace {

using namespace OptimizationTest;
using Algo = AtracsysGeometryOptimizationAlgorithm;

const char* const kSolve = "OptimizationGeometryAlgorithm";

class SolveHarness : public AtracsysGeometryOptimizationAlgorithm {
public:
    SolveHarness()
        : AtracsysGeometryOptimizationAlgorithm(nullptr) {}
    using AtracsysGeometryOptimizationAlgorithm::recording;
    using AtracsysGeometryOptimizationAlgorithm::setOriginalCoordinates;
};

Eigen::Vector3d centroid(const Points& points) {
    Eigen::Vector3d sum = Eigen::Vector3d::Zero();
    for (const auto& p : points)
        sum += p;
    return sum / static_cast<double>(points.size());
}

// The result is `points` moved so that their centroid is at the origin.
void expectCentred(const Points& result, const Points& points, double tolerance) {
    ASSERT_EQ(result.size(), points.size());
    for (std::size_t j = 0; j < points.size(); ++j)
        EXPECT_LT((result[j] - (points[j] - centroid(points))).norm(), tolerance) << j;
}

// A marker whose true fiducials differ from its geometry file by a manufacturing error, seen in
// many noisy frames. The recording delivers the fiducials in `slotOrder`, not in file order.
struct Scenario {
    Points file;
    Points truth;
    std::vector<int> slotOrder{2, 0, 3, 1};

    explicit Scenario(unsigned seed = 7) {
        std::mt19937 rng(seed);
        file = asymmetricMarker();
        truth = perturbed(file, 0.3, rng);
    }

    // `frames` frames with noise `sigma`; fiducial errors spread around `sigma`, frame error their
    // largest value.
    void record(SolveHarness& algo, int frames, double sigma, unsigned seed = 11) const {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> spread(0.5, 1.5);
        algo.setOriginalCoordinates(file);
        for (int i = 0; i < frames; ++i) {
            const Points seen = reordered(observe(truth, randomPose(rng), sigma, rng), slotOrder);
            std::vector<double> errors;
            double worst = 0.0;
            for (std::size_t j = 0; j < seen.size(); ++j) {
                errors.push_back(sigma * spread(rng));
                worst = std::max(worst, errors.back());
            }
            algo.recording().append(seen, worst, errors);
        }
    }
};

TEST(GeometryRearrangement, MatchesPointsToTheReferenceByTheirDistancesWithinAStrictTolerance) {
    TestSupport::LogCapture capture;
    const Points reference = asymmetricMarker();
    std::mt19937 rng(3);
    // Shuffled, moved and slightly deformed (well within the 1.2 mm tolerance).
    const Points seen = reordered(observe(reference, randomPose(rng), 0.2, rng), {3, 1, 0, 2});
    EXPECT_EQ(Algo::rearrangeCoordinates(reference, seen), reordered(seen, {2, 1, 3, 0}));
    EXPECT_EQ(capture->size(), 0u) << capture->dump();

    // A point whose distances fit no reference point fails the whole matching. The tolerance is
    // strict: 2.4 - 1.2 is exactly 1.2 in floating point, and so are these distances.
    const Points pair{{0.0, 0.0, 0.0}, {1.2, 0.0, 0.0}};
    EXPECT_TRUE(Algo::rearrangeCoordinates(pair, {{0.0, 0.0, 0.0}, {2.4, 0.0, 0.0}}).empty());
    EXPECT_EQ(capture->count(Log::Error, "AtracsysTrackingController", "Distance not found"), 1u)
        << capture->dump();
    EXPECT_EQ(Algo::rearrangeCoordinates(pair, {{0.0, 0.0, 0.0}, {2.39, 0.0, 0.0}}).size(), 2u);
    EXPECT_EQ(Algo::rearrangeCoordinates(pair, {{0.0, 0.0, 0.0}, {0.01, 0.0, 0.0}}).size(), 2u);
    EXPECT_EQ(capture->size(), 1u) << capture->dump();
    // Nothing to match against.
    EXPECT_TRUE(Algo::rearrangeCoordinates(reference, {}).empty());
}

TEST(GeometryRearrangement, SymmetricPointsAreReportedOnlyAfterAMatchBeyondPointZero) {
    const std::string ambiguous = "Ambiguous distances : no 1:1 matching of distances possible";
    // Points 0 and 1 are mirror images: they have the same distances to all others.
    const Points kite{{0.0, 0.0, 0.0}, {50.0, 0.0, 0.0}, {25.0, 40.0, 0.0}, {25.0, -70.0, 0.0}};
    TestSupport::LogCapture capture;
    // The twins sit at 0 and 1: the second candidate follows a first one at index 0, no report;
    // the last candidate wins for both twins.
    EXPECT_EQ(Algo::rearrangeCoordinates(kite, kite), reordered(kite, {1, 1, 2, 3}));
    EXPECT_EQ(capture->count(Log::Error, "AtracsysTrackingController", ambiguous), 0u) << capture->dump();
    // The twins sit at 1 and 3: reported once for each of the two reference twins.
    const Points seen = reordered(kite, {2, 0, 3, 1});
    EXPECT_EQ(Algo::rearrangeCoordinates(kite, seen), reordered(seen, {3, 3, 0, 2}));
    EXPECT_EQ(capture->count(Log::Error, "AtracsysTrackingController", ambiguous), 2u) << capture->dump();
}

TEST(GeometrySolve, EachModeRecoversTheTrueGeometryAndPlacesIt) {
    TestSupport::LogCapture capture(Log::Info);
    const Scenario scenario;
    const double fileError = alignedRms(scenario.file, scenario.truth);
    ASSERT_GT(fileError, 0.1);

    // Expected errors: a single frame carries its noise (sigma 0.05), the averages shrink it.
    const std::pair<Algo::OptimizationMode, double> modes[] = {
        {Algo::BestFrame, 0.15}, {Algo::WeightedAverage, 0.03}, {Algo::NonlinearOptimization, 0.03}};
    for (const auto& [mode, limit] : modes) {
        for (const bool keep : {true, false}) {
            SCOPED_TRACE(std::to_string(mode) + (keep ? " kept" : " centred"));
            SolveHarness algo;
            algo.setOptimizationMode(mode);
            algo.setKeepCoordinateLocation(keep);
            scenario.record(algo, 200, 0.05);
            const Points result = algo.runGeometryOptimization();
            ASSERT_EQ(result.size(), 4u) << capture->dump();
            const double error = alignedRms(result, scenario.truth);
            EXPECT_LT(error, limit);
            EXPECT_LT(error, fileError);
            if (keep) // where the geometry file lies, fiducial by fiducial
                EXPECT_LT(rms(result, scenario.file), fileError + 0.1);
            else // centred on its centroid, far from where the file lies
                EXPECT_LT(centroid(result).norm(), 1e-9);
            EXPECT_TRUE(mode != Algo::NonlinearOptimization || algo.optimizer()->evaluations() <= 1000);
        }
    }
    EXPECT_GT(centroid(scenario.file).norm(), 10.0);
    EXPECT_FALSE(capture->contains(Log::Error, kSolve, "Optimization failed")) << capture->dump();
}

TEST(GeometrySolve, FramesAboveTheErrorLimitTakeNoPart) {
    const Scenario scenario;
    std::mt19937 rng(5);
    // Badly deformed frames flagged by an error above 4.0 must not move the result.
    const Points deformed = perturbed(scenario.truth, 5.0, rng);
    for (const auto mode : {Algo::WeightedAverage, Algo::NonlinearOptimization}) {
        SCOPED_TRACE(mode);
        TestSupport::LogCapture capture;
        SolveHarness algo;
        algo.setOptimizationMode(mode);
        scenario.record(algo, 60, 0.05);
        for (int i = 0; i < 40; ++i)
            algo.recording().append(
                reordered(observe(deformed, randomPose(rng), 0.05, rng), scenario.slotOrder), 4.5,
                {0.05, 0.05, 0.05, 0.05});
        // A deformed frame with a zero fiducial error cannot be aligned (infinite weight): it is
        // left out as well.
        algo.recording().append(reordered(observe(deformed, randomPose(rng), 0.05, rng), scenario.slotOrder),
                                1.0, {0.05, 0.0, 0.05, 0.05});
        const Points result = algo.runGeometryOptimization();
        ASSERT_EQ(result.size(), 4u) << capture->dump();
        EXPECT_LT(alignedRms(result, scenario.truth), 0.05);
        if (mode == Algo::NonlinearOptimization) {
            EXPECT_TRUE(capture->contains(Log::Debug, kSolve, "Number of used frames for optimization : 61"))
                << capture->dump();
        }
    }
}

TEST(GeometrySolve, AllFramesAboveTheErrorLimit) {
    const Scenario scenario;
    // Only frames above 4.0; the first has the smallest error.
    auto recordOnlyBad = [&](SolveHarness& algo) {
        algo.setOriginalCoordinates(scenario.file);
        std::mt19937 rng(9);
        for (int i = 0; i < 5; ++i)
            algo.recording().append(
                reordered(observe(scenario.truth, randomPose(rng), 0.05, rng), scenario.slotOrder),
                4.5 + 0.5 * i, {0.1, 0.1, 0.1, 0.1});
    };

    { // Average: the total weight is 0, the points are not finite and matching fails.
        TestSupport::LogCapture capture;
        SolveHarness algo;
        algo.setOptimizationMode(Algo::WeightedAverage);
        recordOnlyBad(algo);
        EXPECT_TRUE(algo.runGeometryOptimization().empty());
        EXPECT_TRUE(capture->contains(Log::Error, "AtracsysTrackingController", "Distance not found"));
    }
    { // Optimisation: the cost is 0 everywhere, so the best frame comes back unchanged.
        TestSupport::LogCapture capture;
        SolveHarness algo;
        algo.setOptimizationMode(Algo::NonlinearOptimization);
        recordOnlyBad(algo);
        const Points best = algo.recording().frames()[0];
        algo.setKeepCoordinateLocation(false);
        const Points result = algo.runGeometryOptimization();
        EXPECT_TRUE(capture->contains(Log::Debug, kSolve, "Number of used frames for optimization : 0"));
        expectCentred(result, Algo::rearrangeCoordinates(scenario.file, best), 1e-6);
    }
}

TEST(GeometrySolve, BestFrameTakesTheFirstSmallestErrorAndTheAverageWeightsFramesByTheirOwnError) {
    struct Row {
        Algo::OptimizationMode mode;
        std::vector<double> stretches, errors;
        double expectedStretch;
    };
    const Row rows[] = {
        {Algo::BestFrame, {1.000, 1.004, 1.008, 1.012}, {0.3, 0.2, 0.2, 0.25}, 1.004},
        // The average leans 3:1 towards the frame with the larger error.
        {Algo::WeightedAverage, {1.0, 1.01}, {1.0, 3.0}, 1.0075},
    };
    std::mt19937 rng(4);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mode);
        SolveHarness algo;
        algo.setOptimizationMode(row.mode);
        const Points file = asymmetricMarker();
        algo.setOriginalCoordinates(file);
        for (std::size_t i = 0; i < row.stretches.size(); ++i) {
            Points frame;
            for (const auto& p : file)
                frame.push_back(p * row.stretches[i]);
            algo.recording().append(observe(frame, randomPose(rng), 0.0, rng), row.errors[i],
                                    {0.1, 0.1, 0.1, 0.1});
        }
        const Points result = algo.runGeometryOptimization();
        ASSERT_EQ(result.size(), 4u);
        EXPECT_NEAR((result[1] - result[0]).norm(), 52.0 * row.expectedStretch, 1e-6);
    }
}

TEST(GeometrySolve, OneFrameIsPlacedButNotReordered) {
    TestSupport::LogCapture capture;
    const Scenario scenario;
    for (const bool keep : {false, true}) {
        SolveHarness algo;
        algo.setKeepCoordinateLocation(keep);
        algo.setOriginalCoordinates(scenario.file);
        const Points frame{{0.0, 0.0, 1000.0}, {10.0, 0.0, 1000.0}, {0.0, 20.0, 1000.0}, {0.0, 0.0, 1030.0}};
        algo.recording().append(frame, 0.1, {0.1, 0.1, 0.1, 0.1});
        const Points result = algo.runGeometryOptimization();
        // Still the frame's own shape and order.
        EXPECT_NEAR((result[1] - result[0]).norm(), 10.0, 1e-9);
        EXPECT_NEAR((result[3] - result[0]).norm(), 30.0, 1e-9);
        if (!keep)
            expectCentred(result, frame, 1e-9);
        else
            EXPECT_LT((centroid(result) - centroid(scenario.file)).norm(), 1e-9);
    }
    EXPECT_EQ(capture->size(), 0u) << capture->dump(); // no optimisation, no log lines of the solve
    EXPECT_TRUE(SolveHarness().runGeometryOptimization().empty());
}

TEST(GeometrySolve, OptimizationScalesTheRecordingAndLogsItsSteps) {
    TestSupport::LogCapture capture;
    const Scenario scenario;
    SolveHarness algo;
    scenario.record(algo, 20, 0.05);
    const Points first = algo.recording().frames()[0];
    ASSERT_EQ(algo.runGeometryOptimization().size(), 4u);
    EXPECT_LT((algo.recording().frames()[0][2] - 100.0 * first[2]).norm(), 1e-9);

    for (const char* line : {"Geometry before optimization", "Distance 0 - 1 : 52",
                             "Number of used frames for optimization : 20",
                             "Initial points : ", "Optimized points: ", "Final geometry after optimization"})
        EXPECT_TRUE(capture->contains(Log::Debug, kSolve, line)) << line;
    EXPECT_EQ(capture->countContaining("Distance "), 6u) << capture->dump();
    // Initial points are printed at the recorded scale.
    const std::size_t best = algo.recording().bestFrame();
    std::ostringstream start;
    start << (algo.recording().frames()[best][0] / 100.0).transpose();
    EXPECT_TRUE(capture->contains(Log::Debug, kSolve, start.str())) << capture->dump();
}

TEST(GeometrySolve, AFailedOptimizationStillYieldsAPlacedResult) {
    TestSupport::LogCapture capture;
    const Scenario scenario;
    SolveHarness algo;
    algo.setKeepCoordinateLocation(false);
    scenario.record(algo, 10, 0.05);
    // An invalid method number: the run fails before the first evaluation.
    algo.setOptimizer(std::make_shared<OptimizerNL>(12, 9999));
    const Points best =
        Algo::rearrangeCoordinates(scenario.file, algo.recording().frames()[algo.recording().bestFrame()]);
    const Points result = algo.runGeometryOptimization();
    EXPECT_EQ(capture->count(Log::Error, kSolve, "Optimization failed"), 1u) << capture->dump();
    // The start vector comes back as it was: the best frame, reordered and centred.
    expectCentred(result, best, 1e-9);
    EXPECT_TRUE(capture->contains(Log::Debug, kSolve, "Final geometry after optimization"));
}

TEST(GeometryCost, MeasuresTheWeightedFitOfTheGoodFrames) {
    TestSupport::LogCapture capture;
    SolveHarness algo;
    const Points marker = asymmetricMarker();
    auto flat = [](const Points& points) {
        std::vector<double> x;
        for (const auto& p : points)
            x.insert(x.end(), {p.x(), p.y(), p.z()});
        return x;
    };
    std::mt19937 rng(1);
    const Points exact = observe(marker, randomPose(rng), 0.0, rng);
    const Points noisy = observe(marker, randomPose(rng), 0.3, rng);
    algo.recording().append(exact, 0.1, {0.1, 0.1, 0.1, 0.1});
    EXPECT_NEAR(algo.evaluate(12, flat(marker).data(), nullptr), 0.0, 1e-9);

    // A second frame counts with 0.001 times its weighted residual; weights are 1 / e^2.
    const std::vector<double> errors{0.1, 0.2, 0.1, 0.4};
    algo.recording().append(noisy, 0.4, errors);
    double expected = 0.0;
    ASSERT_TRUE(Math::fitRigidTransform(noisy, marker, {100.0, 25.0, 100.0, 6.25}, &expected));
    EXPECT_NEAR(algo.evaluate(12, flat(marker).data(), nullptr), 0.001 * expected, 1e-12);

    // Frames above 4.0 and frames with a zero fiducial error (infinite weight) are left out,
    // without a log line per evaluation.
    algo.recording().append(noisy, 4.01, errors);
    algo.recording().append(noisy, 0.2, {0.1, 0.0, 0.1, 0.1});
    EXPECT_NEAR(algo.evaluate(12, flat(marker).data(), nullptr), 0.001 * expected, 1e-12);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();

    // Once its buffers are sized, an evaluation allocates nothing, skipped frames included.
    const std::vector<double> x = flat(marker);
    const std::size_t before = TestSupport::allocationsOnThisThread();
    for (int i = 0; i < 10; ++i)
        algo.evaluate(12, x.data(), nullptr);
    EXPECT_EQ(TestSupport::allocationsOnThisThread(), before);

    // A wrong candidate costs more.
    Points off = marker;
    off[2] += Eigen::Vector3d(1.0, 0.0, 0.0);
    EXPECT_GT(algo.evaluate(12, flat(off).data(), nullptr), 0.001 * expected + 1e-4);
}

} // namespace
} // namespace Kestrion
