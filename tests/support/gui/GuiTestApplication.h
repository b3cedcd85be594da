#pragma once

#include <QApplication>
#include <QString>

namespace Kestrion::TestSupport {

/// The QApplication of a widget test executable, created on first use (tests run on Qt's
/// offscreen platform unless QT_QPA_PLATFORM says otherwise). QSettings of the process are
/// kept in a temporary folder, so that remembered dialog folders never touch the user's.
QApplication& guiApplication();

/// The folder holding the settings files of this test process.
QString guiSettingsFolder();

} // namespace Kestrion::TestSupport
