#pragma once

#include <cstddef>

namespace Kestrion::TestSupport {

/// Number of operator new calls made by the calling thread so far (this test executable replaces
/// the global operator new to count them).
std::size_t allocationsOnThisThread();

} // namespace Kestrion::TestSupport
