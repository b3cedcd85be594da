#include "host/core/Signal.h"

#include "host/core/Log.h"

namespace Kestrion::SignalDetail {

void reportSlotException(const char* what) {
    KESTRION_LOG_ERROR("Signal", "A signal receiver threw an exception: " << what);
}

} // namespace Kestrion::SignalDetail
