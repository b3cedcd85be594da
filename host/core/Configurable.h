#pragma once

#include <string>
#include <vector>

namespace Kestrion {

class ParameterBase;
class Properties;

/// An object whose settings live in a Properties tree. Parameters (Parameter<T> members
/// constructed with this object as owner) register themselves in construction order; the base
/// configure() reads every registered parameter present in the tree and configuration() writes
/// them all. A derived class with further settings overrides these and calls the base for the
/// registered parameters. Parameters are registered while the object is built, before it is
/// shared between threads.
class Configurable {
public:
    Configurable() = default;
    virtual ~Configurable();
    Configurable(const Configurable&) = delete;
    Configurable& operator=(const Configurable&) = delete;

    /// Reads the registered parameters found in the tree; absent ones keep their value, and a
    /// value that does not convert is logged and ignored. A null tree changes nothing.
    virtual void configure(const Properties* properties);
    /// Writes every registered parameter, with its attributes. A null tree is ignored.
    virtual void configuration(Properties* properties) const;
    /// Resets every registered parameter to its default.
    virtual void configureDefaults();
    /// Keys configure() reads that configuration() writes only in some states (a setting left at
    /// its default, a one-off request), so that a tree holding them is not taken for a mistake.
    /// None by default.
    virtual std::vector<std::string> optionalParameterNames() const { return {}; }

    /// The registered parameters in registration order.
    const std::vector<ParameterBase*>& parameters() const { return m_parameters; }
    ParameterBase* parameter(const std::string& name) const;

private:
    friend class ParameterBase;
    void registerParameter(ParameterBase* parameter);
    void unregisterParameter(ParameterBase* parameter);

    std::vector<ParameterBase*> m_parameters;
};

} // namespace Kestrion
