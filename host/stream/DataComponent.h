#pragma once

namespace Kestrion {

/// Extra, optional content attached to a data item (for example the raw fiducials of a tracking
/// frame). Receivers look components up by type.
class DataComponent {
public:
    virtual ~DataComponent() = default;

protected:
    DataComponent() = default;
    DataComponent(const DataComponent&) = default;
    DataComponent& operator=(const DataComponent&) = default;
};

} // namespace Kestrion
