#include "host/core/Data.h"

namespace Kestrion {

Data::Data(std::string name)
    : m_name(std::move(name)) {}

Data::~Data() = default;

} // namespace Kestrion
