#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion {

/// One camera connected to the machine, as its driver reports it.
struct ConnectedCamera {
    std::uint64_t serialNumber = 0;
    /// The model's display name ("fTk 500", "sTk 180", ...).
    std::string typeName;
};

/// What a camera stream offers for choosing among several connected cameras, without the host
/// knowing the camera's driver: the host reaches it by casting the stream it created.
///
/// A selected serial number of 0 (the default) keeps the stream's own rule for which camera it
/// opens; any other value makes the open use that camera or fail.
class CameraSelection {
public:
    virtual ~CameraSelection();

    /// Every camera connected now, in the order the driver reports them. When the cameras cannot
    /// be listed the list is empty and *error (if given) says why.
    virtual std::vector<ConnectedCamera> connectedCameras(std::string* error) const = 0;
    /// The camera the next open uses (0: the stream's own choice).
    virtual std::uint64_t selectedCameraSerial() const = 0;
    virtual void selectCameraSerial(std::uint64_t serialNumber) = 0;
    /// The camera opened by the stream; serial number 0 while it is closed.
    virtual ConnectedCamera cameraInUse() const = 0;

    /// A serial number as the cameras show it: "0x" and 16 lower-case hexadecimal digits.
    static std::string serialText(std::uint64_t serialNumber);
    /// Reads "0x..." (hexadecimal) or decimal digits; false for anything else or out of range.
    static bool parseSerial(const std::string& text, std::uint64_t& serialNumber);
};

} // namespace Kestrion
