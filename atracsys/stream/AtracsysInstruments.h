#pragma once

#include "atracsys/stream/AtracsysGeometry.h"

#include "host/stream/ThreadSafeInstruments.h"

namespace Kestrion {

// The registry of the tracking stream is instantiated once, in AtracsysInstruments.cpp.
extern template class ThreadSafeInstruments<SpryTrack::AtracsysGeometry>;

namespace SpryTrack {
/// The tracking stream's instruments ("atracsys-" + geometry id), each with its marker geometry.
using AtracsysInstruments = ThreadSafeInstruments<AtracsysGeometry>;
} // namespace SpryTrack

} // namespace Kestrion
