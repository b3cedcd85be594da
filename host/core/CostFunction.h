#pragma once

namespace Kestrion {

/// A function of n real parameters for OptimizerNL.
class CostFunction {
public:
    virtual ~CostFunction() = default;

    /// Returns the value at x (n values). `gradient` is null when the optimiser's method does not
    /// use derivatives; otherwise it points to n values to be filled with the partial derivatives.
    /// Called once per evaluation on the thread that runs OptimizerNL::optimize(), so it should not
    /// allocate. An exception thrown here ends the run as a failure.
    virtual double evaluate(int n, const double* x, double* gradient) = 0;
};

} // namespace Kestrion
