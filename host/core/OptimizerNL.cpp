#include "host/core/OptimizerNL.h"

#include "host/core/Log.h"

#include <nlopt.h>

#include <cmath>
#include <exception>
#include <sstream>
#include <utility>

namespace Kestrion {

static_assert(static_cast<int>(OptimizerNL::LdLbfgs) == static_cast<int>(NLOPT_LD_LBFGS),
              "method numbers follow nlopt_algorithm");
static_assert(static_cast<int>(OptimizerNL::LnPraxis) == static_cast<int>(NLOPT_LN_PRAXIS),
              "method numbers follow nlopt_algorithm");
static_assert(static_cast<int>(OptimizerNL::LnCobyla) == static_cast<int>(NLOPT_LN_COBYLA),
              "method numbers follow nlopt_algorithm");
static_assert(static_cast<int>(OptimizerNL::LnNewuoa) == static_cast<int>(NLOPT_LN_NEWUOA),
              "method numbers follow nlopt_algorithm");
static_assert(static_cast<int>(OptimizerNL::LnNelderMead) == static_cast<int>(NLOPT_LN_NELDERMEAD),
              "method numbers follow nlopt_algorithm");
static_assert(static_cast<int>(OptimizerNL::LnSubplex) == static_cast<int>(NLOPT_LN_SBPLX),
              "method numbers follow nlopt_algorithm");
static_assert(static_cast<int>(OptimizerNL::LnBobyqa) == static_cast<int>(NLOPT_LN_BOBYQA),
              "method numbers follow nlopt_algorithm");

namespace {

const char* const kCategory = "OptimizerNL";

bool validMethod(int algorithm) {
    return algorithm >= 0 && algorithm < NLOPT_NUM_ALGORITHMS;
}

} // namespace

OptimizerNL::OptimizerNL(int dimension, int algorithm, CostFunction* costFunction,
                         std::vector<std::string> parameterNames, double tolerance, bool toleranceEnabled,
                         double initialStep, int verbosity, int minimize)
    : m_dimension(dimension)
    , m_algorithm(algorithm)
    , m_costFunction(costFunction)
    , m_parameterNames(std::move(parameterNames))
    , m_tolerance(tolerance)
    , m_toleranceEnabled(toleranceEnabled)
    , m_initialStep(initialStep)
    , m_verbosity(verbosity)
    , m_minimize(minimize != 0) {
    if (dimension < 1)
        KESTRION_LOG_ERROR(kCategory, "OptimizerNL: invalid dimension " << dimension);
    else if (!validMethod(algorithm))
        KESTRION_LOG_ERROR(kCategory, "OptimizerNL: invalid method number " << algorithm);
    else
        m_opt = nlopt_create(static_cast<nlopt_algorithm>(algorithm), static_cast<unsigned>(dimension));
    if (!m_parameterNames.empty() &&
        m_parameterNames.size() != static_cast<std::size_t>(std::max(dimension, 0)))
        KESTRION_LOG_WARN(kCategory, "OptimizerNL: " << m_parameterNames.size() << " parameter names for "
                                                     << dimension << " parameters");
}

OptimizerNL::~OptimizerNL() {
    if (m_opt)
        nlopt_destroy(m_opt);
}

std::string OptimizerNL::algorithmName() const {
    if (!validMethod(m_algorithm))
        return "invalid method " + std::to_string(m_algorithm);
    return nlopt_algorithm_name(static_cast<nlopt_algorithm>(m_algorithm));
}

std::string OptimizerNL::parameterName(int i) const {
    if (static_cast<std::size_t>(i) < m_parameterNames.size())
        return m_parameterNames[static_cast<std::size_t>(i)];
    return "x" + std::to_string(i);
}

bool OptimizerNL::configure() {
    nlopt_result r = m_minimize ? nlopt_set_min_objective(m_opt, &OptimizerNL::trampoline, this)
                                : nlopt_set_max_objective(m_opt, &OptimizerNL::trampoline, this);
    if (r > 0)
        r = nlopt_set_xtol_rel(m_opt, m_toleranceEnabled ? m_tolerance : 0.0);
    if (r > 0)
        r = nlopt_set_maxeval(m_opt, m_maxEvaluationsEnabled ? m_maxEvaluations : 0);
    if (r > 0 && m_maxEvaluationsEnabled && m_maxEvaluations < 1) {
        KESTRION_LOG_ERROR(kCategory, "OptimizerNL: evaluation limit " << m_maxEvaluations
                                                                       << " is enabled but not positive");
        return false;
    }
    if (r > 0 && m_initialStep > 0.0)
        r = nlopt_set_initial_step1(m_opt, m_initialStep);
    if (r <= 0) {
        KESTRION_LOG_ERROR(kCategory, "OptimizerNL: invalid settings for "
                                          << algorithmName() << " (tolerance " << m_tolerance
                                          << ", initial step " << m_initialStep << ")");
        return false;
    }
    return true;
}

int OptimizerNL::optimize(std::vector<double>& x) {
    m_evaluations.store(0, std::memory_order_relaxed);
    m_stopRequested.store(false, std::memory_order_relaxed);
    m_abortReason.clear();
    m_lastResult = NLOPT_INVALID_ARGS;
    if (!m_opt) {
        KESTRION_LOG_ERROR(kCategory,
                           "OptimizerNL: cannot run, "
                               << (m_dimension < 1 ? "invalid dimension " : "invalid method number ")
                               << (m_dimension < 1 ? m_dimension : m_algorithm));
        return 0;
    }
    if (!m_costFunction) {
        KESTRION_LOG_ERROR(kCategory, "OptimizerNL: cannot run without a cost function");
        return 0;
    }
    if (x.size() != static_cast<std::size_t>(m_dimension)) {
        KESTRION_LOG_ERROR(kCategory, "OptimizerNL: start vector has "
                                          << x.size() << " values, the dimension is " << m_dimension);
        return 0;
    }
    if (!configure())
        return 0;

    double value = m_minimize ? HUGE_VAL : -HUGE_VAL;
    const nlopt_result result = nlopt_optimize(m_opt, x.data(), &value);
    m_lastResult = result;
    m_bestValue = value;

    if (result > 0) {
        if (m_verbosity >= 1)
            KESTRION_LOG_DEBUG(kCategory, "OptimizerNL: " << algorithmName() << " finished ("
                                                          << nlopt_result_to_string(result) << ") after "
                                                          << evaluations() << " evaluations, value "
                                                          << value);
        return 1;
    }
    if (!m_abortReason.empty())
        KESTRION_LOG_ERROR(kCategory, "OptimizerNL: run stopped after " << evaluations()
                                                                        << " evaluations: " << m_abortReason);
    else
        KESTRION_LOG_ERROR(kCategory,
                           "OptimizerNL: " << algorithmName() << " failed (" << nlopt_result_to_string(result)
                                           << ": " << (nlopt_get_errmsg(m_opt) ? nlopt_get_errmsg(m_opt) : "")
                                           << ") after " << evaluations() << " evaluations");
    return 0;
}

double OptimizerNL::trampoline(unsigned n, const double* x, double* gradient, void* self) {
    return static_cast<OptimizerNL*>(self)->evaluateOnce(n, x, gradient);
}

// Runs inside nlopt_optimize on the caller's thread. Nothing here allocates on the normal path;
// exceptions must not cross NLopt's C frames, so they end the run through nlopt_force_stop.
double OptimizerNL::evaluateOnce(unsigned n, const double* x, double* gradient) {
    if (m_stopRequested.load(std::memory_order_relaxed)) {
        m_abortReason = "stop requested";
        nlopt_force_stop(m_opt);
        return m_minimize ? HUGE_VAL : -HUGE_VAL;
    }
    const int count = m_evaluations.fetch_add(1, std::memory_order_relaxed) + 1;
    double value = 0.0;
    try {
        value = m_costFunction->evaluate(static_cast<int>(n), x, gradient);
    } catch (const std::exception& e) {
        m_abortReason = std::string("the cost function threw: ") + e.what();
        nlopt_force_stop(m_opt);
        return m_minimize ? HUGE_VAL : -HUGE_VAL;
    } catch (...) {
        m_abortReason = "the cost function threw an unknown exception";
        nlopt_force_stop(m_opt);
        return m_minimize ? HUGE_VAL : -HUGE_VAL;
    }
    if (std::isnan(value)) {
        m_abortReason = "the cost function returned NaN at evaluation " + std::to_string(count);
        nlopt_force_stop(m_opt);
        return m_minimize ? HUGE_VAL : -HUGE_VAL;
    }
    if (m_verbosity >= 2 && Log::isAccepted(Log::Trace, kCategory)) {
        std::ostringstream line;
        line << "OptimizerNL: evaluation " << count << ":";
        for (unsigned i = 0; i < n; ++i)
            line << ' ' << parameterName(static_cast<int>(i)) << '=' << x[i];
        line << " -> " << value;
        Log::log(Log::Trace, kCategory, line.str(), __FILE__, __LINE__);
    }
    return value;
}

} // namespace Kestrion
