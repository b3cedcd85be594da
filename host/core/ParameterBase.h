#pragma once

#include "host/core/Properties.h"

#include <mutex>
#include <optional>
#include <string>

namespace Kestrion {

class Configurable;

/// The type-independent part of a Parameter<T>: a named value registered with its Configurable,
/// which reads and writes it by name with the other settings. Values and attributes may be read
/// and changed from different threads (a panel edits while a worker reads).
class ParameterBase {
public:
    enum class ReadResult { Absent, Read, Invalid };

    /// Registers with the owner (if any), in construction order.
    ParameterBase(std::string name, Configurable* owner);
    virtual ~ParameterBase();
    ParameterBase(const ParameterBase&) = delete;
    ParameterBase& operator=(const ParameterBase&) = delete;

    const std::string& name() const { return m_name; }
    Configurable* owner() const { return m_owner; }

    /// The type tag and the current value as text, as stored in Properties.
    virtual std::string type() const = 0;
    virtual std::string text() const = 0;
    /// Sets the value from text; false (value unchanged) when the text does not convert.
    virtual bool setText(const std::string& text) = 0;
    /// Back to the default value.
    virtual void reset() = 0;

    /// Attributes written with the value (e.g. "hidden" = "true").
    void setAttribute(const std::string& attribute, const std::string& value);
    std::optional<std::string> attribute(const std::string& attribute) const;
    Properties::Attributes attributes() const;

    /// Writes the value under the parameter's name, with its attributes.
    void writeTo(Properties& properties) const;
    /// Reads the value of the same name; an absent or unconvertible one leaves the value as it was.
    ReadResult readFrom(const Properties& properties);

protected:
    // Guards the derived value and the attributes: they are set and read from different threads.
    mutable std::mutex m_mutex;

private:
    friend class Configurable;
    std::string m_name;
    Configurable* m_owner;
    Properties::Attributes m_attributes;
};

} // namespace Kestrion
