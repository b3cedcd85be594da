#include "atracsys/stream/AtracsysInstruments.h"

namespace Kestrion {

template class ThreadSafeInstruments<SpryTrack::AtracsysGeometry>;

} // namespace Kestrion
