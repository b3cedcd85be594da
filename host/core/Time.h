#pragma once

#include <cstdint>

namespace Kestrion::Time {

/// Milliseconds since the Unix epoch, UTC.
std::uint64_t utcMilliseconds();

} // namespace Kestrion::Time
