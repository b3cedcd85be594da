#pragma once

#include <string>

namespace Kestrion {

/// Identity of a tracked instrument: a unique id (e.g. "atracsys-1004"), a name shown to users and
/// a model number.
struct TrackerID {
    TrackerID() = default;
    explicit TrackerID(std::string instrumentId, std::string instrumentName = {}, std::string model = {})
        : id(std::move(instrumentId))
        , name(std::move(instrumentName))
        , modelNumber(std::move(model)) {}

    const std::string& ID() const { return id; }

    bool operator==(const TrackerID& other) const {
        return id == other.id && name == other.name && modelNumber == other.modelNumber;
    }
    bool operator!=(const TrackerID& other) const { return !(*this == other); }

    std::string id;
    std::string name;
    std::string modelNumber;
};

} // namespace Kestrion
