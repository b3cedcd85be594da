#include "host/core/ParameterBase.h"

#include "host/core/Configurable.h"

namespace Kestrion {

ParameterBase::ParameterBase(std::string name, Configurable* owner)
    : m_name(std::move(name))
    , m_owner(owner) {
    if (m_owner)
        m_owner->registerParameter(this);
}

ParameterBase::~ParameterBase() {
    if (m_owner)
        m_owner->unregisterParameter(this);
}

void ParameterBase::setAttribute(const std::string& attribute, const std::string& value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& entry : m_attributes)
        if (entry.first == attribute) {
            entry.second = value;
            return;
        }
    m_attributes.emplace_back(attribute, value);
}

std::optional<std::string> ParameterBase::attribute(const std::string& attribute) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& entry : m_attributes)
        if (entry.first == attribute)
            return entry.second;
    return std::nullopt;
}

Properties::Attributes ParameterBase::attributes() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_attributes;
}

void ParameterBase::writeTo(Properties& properties) const {
    properties.setParamText(m_name, text(), type());
    for (const auto& [key, value] : attributes())
        properties.setParamAttribute(m_name, key, value);
}

ParameterBase::ReadResult ParameterBase::readFrom(const Properties& properties) {
    const std::optional<std::string> stored = properties.paramText(m_name);
    if (!stored)
        return ReadResult::Absent;
    return setText(*stored) ? ReadResult::Read : ReadResult::Invalid;
}

} // namespace Kestrion
