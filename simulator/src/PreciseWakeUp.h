#pragma once

namespace Kestrion::Simulator {

/// While alive, timed waits of the calling thread end when their time comes rather than up to the
/// kernel's default timer slack (50 µs) later. A camera's frame wakes the fetching thread with an
/// interrupt, not a timer; the simulated delivery is a timer, and without this its slack would
/// add tens of µs to every frame's delivery. The thread's previous slack is restored on
/// destruction. Has no effect where the system offers no timer slack.
class PreciseWakeUp {
public:
    PreciseWakeUp();
    ~PreciseWakeUp();
    PreciseWakeUp(const PreciseWakeUp&) = delete;
    PreciseWakeUp& operator=(const PreciseWakeUp&) = delete;

private:
    long m_previousNS = -1; ///< the thread's slack before, or -1 when it was not changed
};

} // namespace Kestrion::Simulator
