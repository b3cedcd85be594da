#include "host/lib/DataAnnotationFactory.h"

#include <utility>

namespace Kestrion {

DataAnnotationFactory::DataAnnotationFactory(std::string prefix)
    : m_prefix(std::move(prefix)) {}

DataAnnotationFactory::~DataAnnotationFactory() = default;

} // namespace Kestrion
