#include "tests/support/gui/GuiTestApplication.h"

#include <QSettings>
#include <QTemporaryDir>

#include <cstdlib>

namespace Kestrion::TestSupport {

namespace {

QTemporaryDir& settingsDir() {
    static QTemporaryDir dir;
    return dir;
}

} // namespace

QApplication& guiApplication() {
    static int argc = 1;
    static char name[] = "kestrion-widget-test";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        if (!std::getenv("QT_QPA_PLATFORM"))
            setenv("QT_QPA_PLATFORM", "offscreen", 0);
        auto* application = new QApplication(argc, argv);
        QApplication::setOrganizationName("KestrionTests");
        QApplication::setApplicationName("widgets");
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settingsDir().path());
        return application;
    }();
    return *app;
}

QString guiSettingsFolder() {
    return settingsDir().path();
}

} // namespace Kestrion::TestSupport
