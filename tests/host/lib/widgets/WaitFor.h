#pragma once

#include <QCoreApplication>

#include <chrono>
#include <thread>

namespace Kestrion::TestSupport {

/// Runs the event loop until the condition holds or the time is up; true when it held. Objects
/// whose deletion was deferred (deleteLater) are deleted too, as the application's loop would.
template <class Condition>
bool waitFor(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace Kestrion::TestSupport
