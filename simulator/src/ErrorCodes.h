#pragma once

#include <ftkInterface.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Kestrion::Simulator {

/// Names of the status codes ("FTK_ERR_INTERNAL") for error texts and scene files.
class ErrorCodes {
public:
    /// The code's name, or null for a value that is no ftkError.
    static const char* name(ftkError code);
    /// The code of a name, or nothing.
    static std::optional<ftkError> fromName(const std::string& name);
    /// The code of a number when it is a declared ftkError value.
    static std::optional<ftkError> fromValue(long long value);
    /// "0x" and the serial number in 16 lower-case hexadecimal digits.
    static std::string serialText(std::uint64_t serial);
};

} // namespace Kestrion::Simulator
