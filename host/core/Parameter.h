#pragma once

#include "host/core/ParameterBase.h"

namespace Kestrion {

/// A named setting of a Configurable, registered with it at construction so that the owner's
/// configure() and configuration() read and write it by name with the other settings:
///
///     Parameter<float> m_tolerance{"Distance matching tolerance", 1.0f, this};
///
/// T is any type PropertyText knows: bool, integers, float, double, std::string, enumerations
/// (stored as integers) and fixed-size Eigen vectors. Reads and writes are thread-safe.
template <class T>
class Parameter : public ParameterBase {
public:
    Parameter(std::string name, T defaultValue, Configurable* owner)
        : ParameterBase(std::move(name), owner)
        , m_default(defaultValue)
        , m_value(std::move(defaultValue)) {}

    T value() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_value;
    }
    operator T() const { return value(); }
    void setValue(T value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_value = std::move(value);
    }
    Parameter& operator=(T value) {
        setValue(std::move(value));
        return *this;
    }
    const T& defaultValue() const { return m_default; }

    std::string type() const override { return PropertyText<T>::type(); }
    std::string text() const override { return PropertyText<T>::toText(value()); }
    bool setText(const std::string& text) override {
        T parsed = m_default;
        if (!PropertyText<T>::fromText(text, parsed))
            return false;
        setValue(std::move(parsed));
        return true;
    }
    void reset() override { setValue(m_default); }

private:
    const T m_default;
    T m_value; // guarded by m_mutex
};

} // namespace Kestrion
