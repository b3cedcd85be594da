#include "host/lib/AlgorithmController.h"

namespace Kestrion {

AlgorithmController::AlgorithmController(Algorithm* algorithm)
    : m_algorithm(algorithm) {}

AlgorithmController::~AlgorithmController() = default;

void AlgorithmController::init() {
    m_initialized = true;
}

} // namespace Kestrion
