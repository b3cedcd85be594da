#include "host/core/OptimizingAlgorithm.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

using namespace Kestrion;

namespace {

// Fits a circle (centre x, y and radius) to points by least squares on the radial distances.
class CircleFit : public OptimizingAlgorithm {
public:
    explicit CircleFit(std::vector<std::pair<double, double>> points)
        : m_points(std::move(points)) {}

    void compute() override {
        if (!optimizer())
            setOptimizer(std::make_shared<OptimizerNL>(3, OptimizerNL::LnBobyqa, nullptr,
                                                       std::vector<std::string>{"x", "y", "r"}, 1e-10, true));
        result = {0.0, 0.0, 1.0};
        setStatus(optimizer()->optimize(result) == 1 ? Success : Error);
    }

    double evaluate(int, const double* c, double*) override {
        double sum = 0.0;
        for (const auto& [x, y] : m_points) {
            const double d = std::hypot(x - c[0], y - c[1]) - c[2];
            sum += d * d;
        }
        return sum;
    }

    std::vector<double> result;

private:
    std::vector<std::pair<double, double>> m_points;
};

std::vector<std::pair<double, double>> circle(double cx, double cy, double r) {
    std::vector<std::pair<double, double>> points;
    for (int i = 0; i < 12; ++i) {
        const double a = 0.5 * i;
        points.emplace_back(cx + r * std::cos(a), cy + r * std::sin(a));
    }
    return points;
}

} // namespace

TEST(OptimizingAlgorithm, ComputeOptimisesItsOwnCostFunction) {
    CircleFit fit(circle(4.0, -3.0, 2.5));
    fit.compute();
    EXPECT_EQ(fit.status(), Algorithm::Success);
    ASSERT_TRUE(fit.optimizer());
    EXPECT_EQ(fit.optimizer()->costFunction(), static_cast<CostFunction*>(&fit));
    ASSERT_EQ(fit.result.size(), 3u);
    EXPECT_NEAR(fit.result[0], 4.0, 1e-5);
    EXPECT_NEAR(fit.result[1], -3.0, 1e-5);
    EXPECT_NEAR(fit.result[2], 2.5, 1e-5);
}

TEST(OptimizingAlgorithm, SharedOptimiserNeverCallsAnAlgorithmThatIsGoneOrReplaced) {
    auto shared = std::make_shared<OptimizerNL>(3, OptimizerNL::LnBobyqa);
    {
        CircleFit fit(circle(0, 0, 1));
        fit.setOptimizer(shared);
        EXPECT_EQ(shared->costFunction(), static_cast<CostFunction*>(&fit));
        fit.setOptimizer(shared); // setting the same one again keeps it attached
        EXPECT_EQ(shared->costFunction(), static_cast<CostFunction*>(&fit));
    }
    EXPECT_EQ(shared->costFunction(), nullptr);

    // Replacing the optimiser detaches the old one, unless it already serves another function.
    CircleFit first(circle(1, 1, 1));
    CircleFit second(circle(2, 2, 2));
    first.setOptimizer(shared);
    first.setOptimizer(std::make_shared<OptimizerNL>(3, OptimizerNL::LnBobyqa));
    EXPECT_EQ(shared->costFunction(), nullptr);
    first.setOptimizer(shared);
    second.setOptimizer(shared);
    first.setOptimizer(nullptr);
    EXPECT_EQ(shared->costFunction(), static_cast<CostFunction*>(&second));
    EXPECT_FALSE(first.optimizer());
}
