#include "host/core/Time.h"

#include <chrono>

namespace Kestrion::Time {

std::uint64_t utcMilliseconds() {
    using namespace std::chrono;
    return static_cast<std::uint64_t>(
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace Kestrion::Time
