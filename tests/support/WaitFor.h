#pragma once

#include <QCoreApplication>
#include <QThread>

#include <chrono>
#include <thread>

namespace Kestrion::TestSupport {

/// Waits until the condition holds or the time is up; true when it held. Tests wait on conditions,
/// never on durations, and the bound is wide for a loaded machine. On the application's thread the
/// Qt event loop runs between the checks, with deferred deletions (deleteLater) as the
/// application's loop would do them, so that queued calls to that thread can make the condition
/// true; elsewhere the check is repeated after a short sleep.
template <class Condition>
bool waitFor(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    const QCoreApplication* application = QCoreApplication::instance();
    const bool runEvents = application != nullptr && QThread::currentThread() == application->thread();
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        if (runEvents) {
            QCoreApplication::processEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(runEvents ? 2 : 5));
    }
    return true;
}

} // namespace Kestrion::TestSupport
