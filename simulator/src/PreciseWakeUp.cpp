#include "simulator/src/PreciseWakeUp.h"

#if defined(__linux__)
#include <sys/prctl.h>
#endif

namespace Kestrion::Simulator {

PreciseWakeUp::PreciseWakeUp() {
#if defined(__linux__)
    const int previous = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
    if (previous > 1 && prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0) == 0) {
        m_previousNS = previous;
    }
#endif
}

PreciseWakeUp::~PreciseWakeUp() {
#if defined(__linux__)
    if (m_previousNS > 0) {
        prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(m_previousNS), 0, 0, 0);
    }
#endif
}

} // namespace Kestrion::Simulator
