#pragma once

#include <chrono>
#include <thread>

namespace Kestrion::TestSupport {

/// Whether the calling thread is the Qt application's (false when there is no application).
bool onApplicationThread();
/// Runs the Qt event loop once, with deferred deletions (deleteLater) as the application's loop
/// would do them.
void runPendingEvents();

/// Waits until the condition holds or the time is up; true when it held. Tests wait on conditions,
/// never on durations, and the bound is wide for a loaded machine. On the application's thread the
/// Qt event loop runs between the checks, so that queued calls to that thread can make the
/// condition true; elsewhere the check is repeated after a short sleep. (Qt stays out of this
/// header: its keyword macros would clash with names in tests that do not use Qt.)
template <class Condition>
bool waitFor(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    const bool runEvents = onApplicationThread();
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        if (runEvents)
            runPendingEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(runEvents ? 2 : 5));
    }
    return true;
}

} // namespace Kestrion::TestSupport
