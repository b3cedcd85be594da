#include "host/core/Configurable.h"

#include "host/core/Log.h"
#include "host/core/ParameterBase.h"

#include <algorithm>

namespace Kestrion {

namespace {
const char* const category = "Configurable";
}

Configurable::~Configurable() {
    // Parameters that outlive their owner (not members of it) must not call back into it.
    for (ParameterBase* parameter : m_parameters)
        parameter->m_owner = nullptr;
}

void Configurable::configure(const Properties* properties) {
    if (!properties)
        return;
    for (ParameterBase* parameter : m_parameters)
        if (parameter->readFrom(*properties) == ParameterBase::ReadResult::Invalid)
            KESTRION_LOG_WARN(category, "Invalid value '"
                                            << properties->paramText(parameter->name()).value_or("")
                                            << "' for parameter '" << parameter->name() << "' ("
                                            << parameter->type() << "), keeping " << parameter->text());
}

void Configurable::configuration(Properties* properties) const {
    if (!properties)
        return;
    for (const ParameterBase* parameter : m_parameters)
        parameter->writeTo(*properties);
}

void Configurable::configureDefaults() {
    for (ParameterBase* parameter : m_parameters)
        parameter->reset();
}

ParameterBase* Configurable::parameter(const std::string& name) const {
    for (ParameterBase* parameter : m_parameters)
        if (parameter->name() == name)
            return parameter;
    return nullptr;
}

void Configurable::registerParameter(ParameterBase* parameter) {
    if (this->parameter(parameter->name()))
        KESTRION_LOG_WARN(category, "Parameter '" << parameter->name()
                                                  << "' is registered twice; both use the same key");
    m_parameters.push_back(parameter);
}

void Configurable::unregisterParameter(ParameterBase* parameter) {
    m_parameters.erase(std::remove(m_parameters.begin(), m_parameters.end(), parameter), m_parameters.end());
}

} // namespace Kestrion
