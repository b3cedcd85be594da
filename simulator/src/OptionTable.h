#pragma once

#include <ftkInterface.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace Kestrion::Simulator {

/// Definition of one option: what the enumeration reports and the bounds of its value.
struct OptionDefinition {
    std::uint32_t id = 0;
    std::string name;
    std::string description;
    std::string unit;
    ftkComponent component = ftkComponent::FTK_DEVICE;
    ftkOptionType type = ftkOptionType::FTK_INT32;
    bool read = true;
    bool write = true;
    bool global = false;
    std::int32_t minInt = 0;
    std::int32_t maxInt = 0;
    std::int32_t defaultInt = 0;
    float minFloat = 0.f;
    float maxFloat = 0.f;
    float defaultFloat = 0.f;
    std::string defaultData;
};

/// The options of one device (or the library's global options) with their current values, read
/// and written with the status codes of the C interface. Not locked: the owner locks.
class OptionTable {
public:
    /// Adds an option at its default value. Definitions are not changed afterwards, so the strings
    /// handed out by the enumeration stay valid for the table's life.
    void add(const OptionDefinition& definition);

    const OptionDefinition* find(std::uint32_t id) const;
    const OptionDefinition* findByName(const std::string& name) const;
    const std::vector<OptionDefinition>& definitions() const { return m_definitions; }

    /// Reads the minimum, maximum, default or current value. FTK_ERR_INV_OPT for an unknown id,
    /// FTK_ERR_INV_OPT_PAR for an option of another type or an unknown getter,
    /// FTK_ERR_INV_OPT_ACC for an option that cannot be read.
    ftkError getInt(std::uint32_t id, ftkOptionGetter what, std::int32_t& out) const;
    ftkError getFloat(std::uint32_t id, ftkOptionGetter what, float& out) const;
    ftkError getData(std::uint32_t id, ftkBuffer& out) const;

    /// Writes the current value. A value out of range is clamped and FTK_WAR_OPT_VAL_RANGE
    /// returned; FTK_ERR_INV_OPT_ACC for a read-only option, FTK_ERR_INV_OPT_VAL for a value that
    /// is not a number or data longer than the buffer.
    ftkError setInt(std::uint32_t id, std::int32_t value);
    ftkError setFloat(std::uint32_t id, float value);
    ftkError setData(std::uint32_t id, const ftkBuffer& value);

    /// Current values for the simulation itself (no access rules); the default when unknown.
    std::int32_t intValue(std::uint32_t id, std::int32_t fallback = 0) const;
    float floatValue(std::uint32_t id, float fallback = 0.f) const;
    /// Sets a value regardless of the write bit (device-maintained values such as counters).
    void forceInt(std::uint32_t id, std::int32_t value);

private:
    struct Value {
        std::int32_t i = 0;
        float f = 0.f;
        std::string data;

        /// The int (std::int32_t) or the float value.
        template <typename T>
        T& number() {
            if constexpr (std::is_floating_point_v<T>) {
                return f;
            } else {
                return i;
            }
        }
        template <typename T>
        const T& number() const {
            return const_cast<Value*>(this)->number<T>();
        }
    };

    std::size_t indexOf(std::uint32_t id) const;
    ftkError access(std::uint32_t id, ftkOptionType type, bool write, std::size_t& index) const;
    /// The int (std::int32_t) or float reading and writing, with the same rules for both.
    template <typename T>
    ftkError getNumber(std::uint32_t id, ftkOptionGetter what, T& out) const;
    template <typename T>
    ftkError setNumber(std::uint32_t id, T value);

    std::vector<OptionDefinition> m_definitions;
    std::vector<Value> m_values;
};

} // namespace Kestrion::Simulator
