#pragma once

#include <stdexcept>
#include <string>

namespace Kestrion::Python {

/// A failure the package reports to Python, with the system's own words and what kind of failure
/// it is; the module turns each kind into its exception class (kestrion.CameraError, ...).
class PythonError : public std::runtime_error {
public:
    enum class Kind {
        General,  ///< kestrion.Error: no plugin, a stream that could not be created or started
        Camera,   ///< kestrion.CameraError: no camera, the camera could not be opened or was lost
        License,  ///< kestrion.LicenseError: the tracking plugin is not licensed
        Geometry, ///< kestrion.GeometryError: a geometry file unreadable, not loaded or refused
        Output,   ///< kestrion.OutputError: an output file that cannot or may not be written
        Input,    ///< ValueError: a bad argument, a damaged or foreign input file
    };

    PythonError(Kind kind, const std::string& message)
        : std::runtime_error(message)
        , m_kind(kind) {}

    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

} // namespace Kestrion::Python
