#pragma once

#include <string>

namespace Kestrion {

/// Base of every data item the host passes around (images, tracking data, geometries...), held
/// by shared pointers in a DataList.
class Data {
public:
    Data() = default;
    explicit Data(std::string name);
    virtual ~Data();

    /// The name shown to users; may be empty.
    const std::string& name() const { return m_name; }
    void setName(const std::string& name) { m_name = name; }

protected:
    Data(const Data&) = default;
    Data& operator=(const Data&) = default;

private:
    std::string m_name;
};

} // namespace Kestrion
