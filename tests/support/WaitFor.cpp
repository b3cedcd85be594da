#include "tests/support/WaitFor.h"

#include <QCoreApplication>
#include <QThread>

namespace Kestrion::TestSupport {

bool onApplicationThread() {
    const QCoreApplication* application = QCoreApplication::instance();
    return application != nullptr && QThread::currentThread() == application->thread();
}

void runPendingEvents() {
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace Kestrion::TestSupport
