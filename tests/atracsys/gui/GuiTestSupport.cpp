#include "tests/atracsys/gui/GuiTestSupport.h"

#include "tests/support/gui/GuiTestApplication.h"

#include <QCoreApplication>
#include <QDir>
#include <QThread>

namespace Kestrion::GuiTest {

void ensureApplication() {
    TestSupport::guiApplication();
}

bool processEventsUntil(const std::function<bool()>& condition, std::chrono::seconds timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

std::string dataFile(const std::string& name) {
    return std::string(KESTRION_TEST_DATA_DIR) + "/gui/" + name;
}

std::string TemporaryHome::geometryFolder(bool create) const {
    const QString folder = m_dir.path() + "/.local/share/data/demo_x64Atracsys/PassiveTrackingSDK";
    if (create)
        QDir().mkpath(folder);
    return folder.toStdString();
}

} // namespace Kestrion::GuiTest
