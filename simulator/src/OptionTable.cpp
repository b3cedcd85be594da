#include "simulator/src/OptionTable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace Kestrion::Simulator {

namespace {

constexpr std::size_t NotFound = static_cast<std::size_t>(-1);

bool validGetter(ftkOptionGetter what) {
    return static_cast<std::uint8_t>(what) <= static_cast<std::uint8_t>(ftkOptionGetter::FTK_VALUE);
}

template <typename T>
constexpr ftkOptionType NumberType =
    std::is_floating_point_v<T> ? ftkOptionType::FTK_FLOAT32 : ftkOptionType::FTK_INT32;

/// Minimum, maximum and default of an int (std::int32_t) or float option, in getter order.
template <typename T>
std::array<T, 3> limits(const OptionDefinition& d) {
    if constexpr (std::is_floating_point_v<T>) {
        return {d.minFloat, d.maxFloat, d.defaultFloat};
    } else {
        return {d.minInt, d.maxInt, d.defaultInt};
    }
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

template <typename T>
ftkError OptionTable::getNumber(std::uint32_t id, ftkOptionGetter what, T& out) const {
    std::size_t i = 0;
    const ftkError status = access(id, NumberType<T>, false, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    if (!validGetter(what)) {
        return ftkError::FTK_ERR_INV_OPT_PAR;
    }
    const std::array<T, 3> bounds = limits<T>(m_definitions[i]);
    out =
        what == ftkOptionGetter::FTK_VALUE ? m_values[i].number<T>() : bounds[static_cast<std::size_t>(what)];
    return ftkError::FTK_OK;
}

template <typename T>
ftkError OptionTable::setNumber(std::uint32_t id, T value) {
    std::size_t i = 0;
    const ftkError status = access(id, NumberType<T>, true, i);
    if (status != ftkError::FTK_OK) {
        return status;
    }
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(value)) {
            return ftkError::FTK_ERR_INV_OPT_VAL;
        }
    }
    const std::array<T, 3> bounds = limits<T>(m_definitions[i]);
    const T clamped = std::clamp(value, bounds[0], bounds[1]);
    m_values[i].number<T>() = clamped;
    return clamped == value ? ftkError::FTK_OK : ftkError::FTK_WAR_OPT_VAL_RANGE;
}

ftkError OptionTable::getInt(std::uint32_t id, ftkOptionGetter what, std::int32_t& out) const {
    return getNumber(id, what, out);
}

ftkError OptionTable::getFloat(std::uint32_t id, ftkOptionGetter what, float& out) const {
    return getNumber(id, what, out);
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
    return setNumber(id, value);
}

ftkError OptionTable::setFloat(std::uint32_t id, float value) {
    return setNumber(id, value);
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
