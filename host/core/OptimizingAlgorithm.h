#pragma once

#include "host/core/Algorithm.h"
#include "host/core/CostFunction.h"
#include "host/core/OptimizerNL.h"

#include <memory>

namespace Kestrion {

/// An algorithm whose work is the optimisation of its own cost function: it is a CostFunction
/// (evaluate() is left to the derived class) and holds the OptimizerNL that minimises it.
///
/// setOptimizer() makes this algorithm the optimiser's cost function. The optimiser is shared and
/// may outlive the algorithm: on destruction, or when another optimiser is set, the algorithm
/// detaches itself from the one it held (its cost function becomes null) if it is still that
/// optimiser's cost function, so an optimiser never calls a destroyed algorithm.
///
/// The optimiser is set and run by the thread that runs compute() (or before compute() starts);
/// it is not guarded for concurrent use.
class OptimizingAlgorithm : public Algorithm, public CostFunction {
public:
    OptimizingAlgorithm() = default;
    ~OptimizingAlgorithm() override;

    void setOptimizer(std::shared_ptr<OptimizerNL> optimizer);
    const std::shared_ptr<OptimizerNL>& optimizer() const { return m_optimizer; }

private:
    void detach();

    std::shared_ptr<OptimizerNL> m_optimizer;
};

} // namespace Kestrion
