#include "simulator/src/OptionTable.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Kestrion::Simulator {

namespace {

constexpr std::size_t NotFound = static_cast<std::size_t>(-1);

bool validGetter(ftkOptionGetter what) {
    return static_cast<std::uint8_t>(what) <= static_cast<std::uint8_t>(ftkOptionGetter::FTK_VALUE);
}

} // namespace

void OptionTable::add(const OptionDefinition& definition) {
    m_definitions.push_back(definition);
    Value value;
    value.i = definition.defaultInt;
    value.f = definition.defaultFloat;
    value.data = definition.defaultData;
    m_values.push_back(value);
}

std::size_t OptionTable::indexOf(std::uint32_t id) const {
    for (std::size_t i = 0; i < m_definitions.size(); ++i) {
        if (m_definitions[i].id == id) {
            return i;
        }
    }
    return NotFound;
}

const OptionDefinition* OptionTable::find(std::uint32_t id) const {
    const std::size_t i = indexOf(id);
    return i == NotFound ? nullptr : &m_definitions[i];
}

const OptionDefinition* OptionTable::findByName(const std::string& name) const {
    for (const OptionDefinition& d : m_definitions) {
        if (d.name == name) {
            return &d;
        }
    }
    return nullptr;
}

ftkError OptionTable::access(std::uint32_t id, ftkOptionType type, bool write, std::size_t& index) const {
    index = indexOf(id);
    if (index == NotFound) {
        return ftkError::FTK_ERR_INV_OPT;
    }
    const OptionDefinition& d = m_definitions[index];
    if (d.type != type) {
        return ftkError::FTK_ERR_INV_OPT_PAR;
    }
    if (write ? !d.write : !d.read) {
        return ftkError::FTK_ERR_INV_OPT_ACC;
    }
    return ftkError::FTK_OK;
}

ftkError OptionTable::getInt(std::uint32_t id, ftkOptionGetter what, std::int32_t& out) const {
    std::size_t i = 0;
    const ftkError status = access(id, ftkOptionType::FTK_INT32, false, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    if (!validGetter(what)) {
        return ftkError::FTK_ERR_INV_OPT_PAR;
    }
    const OptionDefinition& d = m_definitions[i];
    switch (what) {
    case ftkOptionGetter::FTK_MIN_VAL:
        out = d.minInt;
        break;
    case ftkOptionGetter::FTK_MAX_VAL:
        out = d.maxInt;
        break;
    case ftkOptionGetter::FTK_DEF_VAL:
        out = d.defaultInt;
        break;
    case ftkOptionGetter::FTK_VALUE:
        out = m_values[i].i;
        break;
    }
    return ftkError::FTK_OK;
}

ftkError OptionTable::getFloat(std::uint32_t id, ftkOptionGetter what, float& out) const {
    std::size_t i = 0;
    const ftkError status = access(id, ftkOptionType::FTK_FLOAT32, false, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    if (!validGetter(what)) {
        return ftkError::FTK_ERR_INV_OPT_PAR;
    }
    const OptionDefinition& d = m_definitions[i];
    switch (what) {
    case ftkOptionGetter::FTK_MIN_VAL:
        out = d.minFloat;
        break;
    case ftkOptionGetter::FTK_MAX_VAL:
        out = d.maxFloat;
        break;
    case ftkOptionGetter::FTK_DEF_VAL:
        out = d.defaultFloat;
        break;
    case ftkOptionGetter::FTK_VALUE:
        out = m_values[i].f;
        break;
    }
    return ftkError::FTK_OK;
}

ftkError OptionTable::getData(std::uint32_t id, ftkBuffer& out) const {
    std::size_t i = 0;
    const ftkError status = access(id, ftkOptionType::FTK_DATA, false, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    const std::string& data = m_values[i].data;
    std::memset(out.data, 0, sizeof(out.data));
    std::memcpy(out.data, data.data(), data.size());
    out.size = static_cast<std::uint32_t>(data.size());
    return ftkError::FTK_OK;
}

ftkError OptionTable::setInt(std::uint32_t id, std::int32_t value) {
    std::size_t i = 0;
    const ftkError status = access(id, ftkOptionType::FTK_INT32, true, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    const OptionDefinition& d = m_definitions[i];
    const std::int32_t clamped = std::clamp(value, d.minInt, d.maxInt);
    m_values[i].i = clamped;
    return clamped == value ? ftkError::FTK_OK : ftkError::FTK_WAR_OPT_VAL_RANGE;
}

ftkError OptionTable::setFloat(std::uint32_t id, float value) {
    std::size_t i = 0;
    const ftkError status = access(id, ftkOptionType::FTK_FLOAT32, true, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    if (std::isnan(value)) {
        return ftkError::FTK_ERR_INV_OPT_VAL;
    }
    const OptionDefinition& d = m_definitions[i];
    const float clamped = std::clamp(value, d.minFloat, d.maxFloat);
    m_values[i].f = clamped;
    return clamped == value ? ftkError::FTK_OK : ftkError::FTK_WAR_OPT_VAL_RANGE;
}

ftkError OptionTable::setData(std::uint32_t id, const ftkBuffer& value) {
    std::size_t i = 0;
    const ftkError status = access(id, ftkOptionType::FTK_DATA, true, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    if (value.size > BUFFER_MAX_SIZE) {
        return ftkError::FTK_ERR_INV_OPT_VAL;
    }
    m_values[i].data.assign(value.data, value.size);
    return ftkError::FTK_OK;
}

std::int32_t OptionTable::intValue(std::uint32_t id, std::int32_t fallback) const {
    const std::size_t i = indexOf(id);
    return i == NotFound ? fallback : m_values[i].i;
}

float OptionTable::floatValue(std::uint32_t id, float fallback) const {
    const std::size_t i = indexOf(id);
    return i == NotFound ? fallback : m_values[i].f;
}

void OptionTable::forceInt(std::uint32_t id, std::int32_t value) {
    const std::size_t i = indexOf(id);
    if (i != NotFound) {
        m_values[i].i = value;
    }
}

} // namespace Kestrion::Simulator
