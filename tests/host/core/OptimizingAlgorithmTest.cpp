#include "host/core/OptimizingAlgorithm.h"

#include <gtest/gtest.h>

#include <memory>

using namespace Kestrion;

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
