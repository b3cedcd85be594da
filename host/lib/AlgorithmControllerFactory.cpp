#include "host/lib/AlgorithmControllerFactory.h"

#include <utility>

namespace Kestrion {

AlgorithmControllerFactory::AlgorithmControllerFactory(std::string prefix, bool preferred)
    : m_prefix(std::move(prefix))
    , m_preferred(preferred) {}

AlgorithmControllerFactory::~AlgorithmControllerFactory() = default;

} // namespace Kestrion
