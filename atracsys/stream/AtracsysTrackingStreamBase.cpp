#include "atracsys/stream/AtracsysTrackingStreamBase.h"

namespace Kestrion {

AtracsysTrackingStreamBase::AtracsysTrackingStreamBase(std::string name)
    : TrackingStream(std::move(name)) {}

AtracsysTrackingStreamBase::~AtracsysTrackingStreamBase() = default;

} // namespace Kestrion
