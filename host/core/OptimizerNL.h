#pragma once

#include "host/core/CostFunction.h"

#include <atomic>
#include <string>
#include <vector>

struct nlopt_opt_s;

namespace Kestrion {

/// Finds a local minimum (or maximum) of a CostFunction with one of the NLopt methods.
///
/// Settings are read at the start of each optimize() call and may be changed between runs. One
/// optimiser is run by one thread at a time; only requestStop() and evaluations() may be called from
/// another thread while it runs.
class OptimizerNL {
public:
    /// Method numbers: the values of NLopt's nlopt_algorithm enumeration. A few common ones are named
    /// here; any other valid number may be passed. "Ln" methods need no gradient, "Ld" ones use it.
    enum Method : int {
        LdLbfgs = 11,
        LnPraxis = 12,
        LnCobyla = 25,
        LnNewuoa = 26,
        LnNelderMead = 28,
        LnSubplex = 29,
        LnBobyqa = 34, ///< bound-optimisation by quadratic approximation, derivative free
    };

    /// - dimension: number of parameters (at least 1).
    /// - algorithm: method number, see Method.
    /// - costFunction: the function to optimise, not owned; may be null and set later.
    /// - parameterNames: one name per parameter for log lines; empty gives "x0", "x1", ...
    /// - tolerance, toleranceEnabled: stop when a step changes every parameter by less than
    ///   tolerance times its magnitude (NLopt's relative x tolerance); ignored when not enabled.
    /// - initialStep: size of the first steps, in parameter units, for the derivative-free
    ///   methods; 0 or less lets NLopt pick one from the start vector.
    /// - verbosity: 0 logs only failures; 1 adds a debug line per run (result, value, evaluations);
    ///   2 adds a trace line per evaluation with the parameters and the value.
    /// - minimize: non-zero minimises the cost, 0 maximises it.
    OptimizerNL(int dimension, int algorithm, CostFunction* costFunction = nullptr,
                std::vector<std::string> parameterNames = {}, double tolerance = 1e-6,
                bool toleranceEnabled = true, double initialStep = 1.0, int verbosity = 0, int minimize = 1);
    ~OptimizerNL();
    OptimizerNL(const OptimizerNL&) = delete;
    OptimizerNL& operator=(const OptimizerNL&) = delete;

    int dimension() const { return m_dimension; }
    int algorithm() const { return m_algorithm; }
    /// NLopt's description of the method, or "invalid method N".
    std::string algorithmName() const;
    const std::vector<std::string>& parameterNames() const { return m_parameterNames; }

    void setCostFunction(CostFunction* costFunction) { m_costFunction = costFunction; }
    CostFunction* costFunction() const { return m_costFunction; }

    double tolerance() const { return m_tolerance; }
    void setTolerance(double tolerance) { m_tolerance = tolerance; }
    bool toleranceEnabled() const { return m_toleranceEnabled; }
    void setToleranceEnabled(bool enabled) { m_toleranceEnabled = enabled; }
    double initialStep() const { return m_initialStep; }
    void setInitialStep(double step) { m_initialStep = step; }
    int verbosity() const { return m_verbosity; }
    void setVerbosity(int verbosity) { m_verbosity = verbosity; }
    bool minimize() const { return m_minimize; }
    void setMinimize(bool minimize) { m_minimize = minimize; }

    /// The evaluation limit: a run stops after this many cost function evaluations, counted per
    /// run, but only while the limit is enabled (it is not by default). Reaching it is a success:
    /// x then holds the best point found.
    int maxEvaluations() const { return m_maxEvaluations; }
    void setMaxEvaluations(int evaluations) { m_maxEvaluations = evaluations; }
    bool maxEvaluationsEnabled() const { return m_maxEvaluationsEnabled; }
    void setMaxEvaluationsEnabled(bool enabled) { m_maxEvaluationsEnabled = enabled; }

    /// Runs the method from x and leaves the best point found in x. Returns 1 when NLopt reports
    /// success (converged, or stopped by the evaluation limit) and 0 on failure, with an error log
    /// line under "OptimizerNL": no cost function, x of the wrong size, an invalid method or
    /// setting, NLopt's own failures, a cost function that throws or returns NaN, or requestStop().
    /// After a failure x holds what NLopt left in it (normally the best point found so far).
    int optimize(std::vector<double>& x);

    /// Ends the current run at its next evaluation (as a failure). Safe from any thread; the request
    /// is cleared when the next run starts.
    void requestStop() { m_stopRequested.store(true, std::memory_order_relaxed); }

    /// Value of the cost function at the point optimize() returned (the best one seen).
    double bestValue() const { return m_bestValue; }
    /// Evaluations of the current or last run.
    int evaluations() const { return m_evaluations.load(std::memory_order_relaxed); }
    /// NLopt's result code of the last run (positive on success), or -2 when it could not start.
    int lastResult() const { return m_lastResult; }

private:
    static double trampoline(unsigned n, const double* x, double* gradient, void* self);
    double evaluateOnce(unsigned n, const double* x, double* gradient);
    bool configure();
    std::string parameterName(int i) const;

    int m_dimension;
    int m_algorithm;
    CostFunction* m_costFunction;
    std::vector<std::string> m_parameterNames;
    double m_tolerance;
    bool m_toleranceEnabled;
    double m_initialStep;
    int m_verbosity;
    bool m_minimize;
    int m_maxEvaluations = 0;
    bool m_maxEvaluationsEnabled = false;

    nlopt_opt_s* m_opt = nullptr;
    std::atomic<bool> m_stopRequested{false};
    std::atomic<int> m_evaluations{0};
    double m_bestValue = 0.0;
    int m_lastResult = 0;
    // Why the current run was ended from inside the cost function call, if it was.
    std::string m_abortReason;
};

} // namespace Kestrion
