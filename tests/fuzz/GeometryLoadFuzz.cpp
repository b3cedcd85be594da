// Fuzz entry point for geometry loading: any byte sequence as a geometry file.
#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "host/core/Log.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Messages are still built (every level is accepted) but nothing prints them.
    Log::setConsoleEnabled(false);
    Log::setGlobalLevel(Log::Trace);

    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    const auto geometry = loadFile(in);
    if (geometry && geometry->pointsCount > FTK_MAX_FIDUCIALS)
        std::abort();
    return 0;
}
