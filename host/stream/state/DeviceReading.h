#pragma once

#include <string>

namespace Kestrion {

/// One value a device reports about itself, as data for views that know no camera: its
/// temperature, a counter it keeps, a setting in force. TrackingStream::readDevice() gives them.
struct DeviceReading {
    enum class Kind {
        Temperature, ///< a temperature of the device (unit "°C")
        Measurement, ///< another value the device measures or counts (read-only)
        Setting,     ///< a value the user or the host can set (an option that can be written)
    };

    /// As the device names it ("Sensor temperature").
    std::string name;
    /// The value written for people ("25.0", "200").
    std::string value;
    /// Its unit ("°C", "us", "frames"; empty when it has none).
    std::string unit;
    Kind kind = Kind::Measurement;
};

} // namespace Kestrion
