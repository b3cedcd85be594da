#pragma once

// Failures of the SDK calls that the simulated camera cannot be made to fail: library start-up,
// frame record creation and configuration, library shutdown, and a fetch that runs out of memory. The test
// executables that use this are linked with -Wl,--wrap for those functions, so the stream's calls reach the
// functions here, which fail once when armed and otherwise pass the call on to the simulated camera.

#include <atomic>

namespace Kestrion::TrackingStreamTest::SdkFaults {

enum class Fault {
    None,
    InitReturnsNull,  ///< ftkInit gives no handle
    InitThrows,       ///< ftkInit throws std::bad_alloc (the driver ran out of memory)
    CreateFrameFails, ///< ftkCreateFrame gives no record
    FrameOptionsFail, ///< ftkSetFrameOptions refuses the record (it stays allocated)
    CloseFails,       ///< ftkClose closes the handle but reports FTK_ERR_INTERNAL
    FetchThrows,      ///< ftkGetLastFrame throws std::bad_alloc
};

/// The next call of the function concerned fails as described; later calls go through.
void arm(Fault fault);
/// True when the armed fault has not happened yet.
bool pending();

} // namespace Kestrion::TrackingStreamTest::SdkFaults
