#include "host/core/OptimizerNL.h"
#include "host/core/OptimizingAlgorithm.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>

using namespace Kestrion;

// Counts operator new calls made on a thread while counting is switched on there, so a test can
// tell whether the optimiser allocates between two evaluations of the cost function.
namespace {
thread_local bool countAllocations = false;
thread_local long allocations = 0;
} // namespace

void* operator new(std::size_t size) {
    if (countAllocations)
        ++allocations;
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

// A cost function from a lambda, counting its calls.
class Function : public CostFunction {
public:
    explicit Function(std::function<double(int, const double*, double*)> f)
        : m_f(std::move(f)) {}
    double evaluate(int n, const double* x, double* gradient) override {
        ++calls;
        return m_f(n, x, gradient);
    }
    int calls = 0;

private:
    std::function<double(int, const double*, double*)> m_f;
};

// Minimum 4 at (3, -2, 7.5).
double shiftedQuadratic(int, const double* x, double*) {
    return (x[0] - 3) * (x[0] - 3) + 2 * (x[1] + 2) * (x[1] + 2) + 0.5 * (x[2] - 7.5) * (x[2] - 7.5) + 4;
}

double rosenbrock(int, const double* x, double*) {
    return 100 * (x[1] - x[0] * x[0]) * (x[1] - x[0] * x[0]) + (1 - x[0]) * (1 - x[0]);
}

} // namespace

TEST(OptimizerNL, FindsTheMinimumOfAShiftedQuadraticWithEachMethod) {
    Function f(shiftedQuadratic);
    for (int method : {OptimizerNL::LnBobyqa, OptimizerNL::LnNelderMead}) {
        OptimizerNL optimizer(3, method, &f, {}, 1e-10, true, 1.0, 0, 1);
        std::vector<double> x = {0, 0, 0};
        ASSERT_EQ(optimizer.optimize(x), 1) << optimizer.algorithmName();
        EXPECT_NEAR(x[0], 3.0, 1e-4) << optimizer.algorithmName();
        EXPECT_NEAR(x[1], -2.0, 1e-4);
        EXPECT_NEAR(x[2], 7.5, 1e-4);
        EXPECT_NEAR(optimizer.bestValue(), 4.0, 1e-7);
    }
}

TEST(OptimizerNL, SolvesRosenbrockAndStopsAtTheEvaluationLimit) {
    Function f(rosenbrock);
    OptimizerNL optimizer(2, OptimizerNL::LnBobyqa, &f, {"a", "b"}, 1e-10, true, 0.5, 0, 1);
    std::vector<double> x = {-1.2, 1.0};
    ASSERT_EQ(optimizer.optimize(x), 1);
    EXPECT_LT(std::hypot(x[0] - 1, x[1] - 1), 1e-4);

    // Reaching the limit is a success with the best point so far.
    optimizer.setMaxEvaluations(40);
    optimizer.setMaxEvaluationsEnabled(true);
    f.calls = 0;
    x = {-1.2, 1.0};
    ASSERT_EQ(optimizer.optimize(x), 1);
    EXPECT_EQ(optimizer.lastResult(), 5); // stopped by the evaluation limit
    EXPECT_LE(f.calls, 40);
    EXPECT_DOUBLE_EQ(optimizer.bestValue(), rosenbrock(2, x.data(), nullptr));
}

TEST(OptimizerNL, FailuresReturnZeroAndSayWhy) {
    TestSupport::LogCapture capture;
    Function quadratic(shiftedQuadratic);
    std::vector<double> x = {1, 1, 1};
    const auto fails = [&](OptimizerNL& optimizer, std::vector<double>& start, const std::string& reason) {
        SCOPED_TRACE(reason);
        capture->clear();
        EXPECT_EQ(optimizer.optimize(start), 0);
        EXPECT_EQ(capture->countContaining(reason), 1u) << capture->dump();
    };
    OptimizerNL noCost(3, OptimizerNL::LnBobyqa);
    fails(noCost, x, "cannot run without a cost function");
    OptimizerNL wrongMethod(3, 99, &quadratic);
    fails(wrongMethod, x, "cannot run, invalid method number 99");
    OptimizerNL optimizer(3, OptimizerNL::LnBobyqa, &quadratic);
    std::vector<double> shortX = {1, 1};
    fails(optimizer, shortX, "start vector has 2 values, the dimension is 3");
    optimizer.setMaxEvaluationsEnabled(true);
    optimizer.setMaxEvaluations(0);
    fails(optimizer, x, "evaluation limit 0 is enabled but not positive");
    optimizer.setMaxEvaluationsEnabled(false);

    // A cost function that throws or returns NaN ends the run.
    int count = 0;
    Function throwing([&count](int n, const double* p, double* g) {
        if (++count == 5)
            throw std::runtime_error("lost the recording");
        return shiftedQuadratic(n, p, g);
    });
    optimizer.setCostFunction(&throwing);
    fails(optimizer, x,
          "OptimizerNL: run stopped after 5 evaluations: the cost function threw: lost the recording");
    Function nan([](int, const double*, double*) { return std::numeric_limits<double>::quiet_NaN(); });
    optimizer.setCostFunction(&nan);
    fails(optimizer, x, "the cost function returned NaN at evaluation 1");

    // A stop request made during a run ends it at the next evaluation; the next run starts afresh.
    Function stopping([&optimizer](int n, const double* p, double* g) {
        if (optimizer.evaluations() == 7)
            optimizer.requestStop();
        return shiftedQuadratic(n, p, g);
    });
    optimizer.setCostFunction(&stopping);
    fails(optimizer, x, "run stopped after 7 evaluations: stop requested");
    optimizer.setCostFunction(&quadratic);
    EXPECT_EQ(optimizer.optimize(x), 1);
}

TEST(OptimizerNL, EvaluationsAllocateNothingAndTraceNamedParametersOnlyWhenVerbose) {
    long between = -1;
    bool first = true;
    Function probe([&](int n, const double* x, double* g) {
        // Allocations made since the previous evaluation, i.e. by the optimiser's own loop.
        if (!first)
            between = std::max(between, allocations);
        first = false;
        allocations = 0;
        return shiftedQuadratic(n, x, g);
    });
    OptimizerNL optimizer(3, OptimizerNL::LnBobyqa, &probe, {"x", "y", "z"}, 1e-8, true, 1.0, 0, 1);
    std::vector<double> x = {0, 0, 0};
    {
        TestSupport::LogCapture capture;
        countAllocations = true;
        const int ok = optimizer.optimize(x);
        countAllocations = false;
        ASSERT_EQ(ok, 1);
        EXPECT_EQ(between, 0);
        EXPECT_EQ(capture->size(), 0u) << capture->dump(); // verbosity 0: silent on success
    }

    TestSupport::LogCapture capture;
    optimizer.setVerbosity(2);
    optimizer.setMaxEvaluationsEnabled(true);
    optimizer.setMaxEvaluations(3);
    x = {1, 2, 3};
    ASSERT_EQ(optimizer.optimize(x), 1);
    EXPECT_TRUE(
        capture->contains(Log::Trace, "OptimizerNL", "OptimizerNL: evaluation 1: x=1 y=2 z=3 -> 50.125"))
        << capture->dump();
    EXPECT_EQ(capture->countContaining("OptimizerNL: evaluation "), 3u);
    EXPECT_EQ(capture->countContaining("MAXEVAL_REACHED) after 3 evaluations, value "), 1u);
}

namespace {

// Minimises (x - target)^2 with whatever optimiser it is given.
class Fit : public OptimizingAlgorithm {
public:
    explicit Fit(double target)
        : m_target(target) {}
    void compute() override {
        result = {0.0};
        setStatus(optimizer() && optimizer()->optimize(result) == 1 ? Success : Error);
    }
    double evaluate(int, const double* x, double*) override { return (x[0] - m_target) * (x[0] - m_target); }
    std::vector<double> result;

private:
    double m_target;
};

} // namespace

TEST(OptimizingAlgorithm, SharedOptimiserServesOnlyTheAlgorithmThatHoldsItLast) {
    auto shared = std::make_shared<OptimizerNL>(1, OptimizerNL::LnBobyqa);
    {
        Fit fit(4.0);
        fit.setOptimizer(shared);
        fit.setOptimizer(shared); // setting the same one again keeps it attached
        fit.compute();
        EXPECT_EQ(fit.status(), Algorithm::Success);
        EXPECT_NEAR(fit.result[0], 4.0, 1e-4);
    }
    EXPECT_EQ(shared->costFunction(), nullptr) << "a destroyed algorithm is never called";

    // Replacing the optimiser detaches the old one, unless it already serves another function.
    Fit first(1.0);
    Fit second(2.0);
    first.setOptimizer(shared);
    first.setOptimizer(std::make_shared<OptimizerNL>(1, OptimizerNL::LnBobyqa));
    EXPECT_EQ(shared->costFunction(), nullptr);
    first.setOptimizer(shared);
    second.setOptimizer(shared);
    first.setOptimizer(nullptr);
    EXPECT_EQ(shared->costFunction(), static_cast<CostFunction*>(&second));
}
