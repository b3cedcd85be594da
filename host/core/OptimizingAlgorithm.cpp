#include "host/core/OptimizingAlgorithm.h"

#include <utility>

namespace Kestrion {

OptimizingAlgorithm::~OptimizingAlgorithm() {
    detach();
}

void OptimizingAlgorithm::setOptimizer(std::shared_ptr<OptimizerNL> optimizer) {
    if (optimizer != m_optimizer)
        detach();
    m_optimizer = std::move(optimizer);
    if (m_optimizer)
        m_optimizer->setCostFunction(this);
}

void OptimizingAlgorithm::detach() {
    if (m_optimizer && m_optimizer->costFunction() == static_cast<CostFunction*>(this))
        m_optimizer->setCostFunction(nullptr);
}

} // namespace Kestrion
