#pragma once

// Helpers of the plugin's user-interface tests: the Qt application, waiting on the event loop,
// and a temporary home folder holding the user geometry folder.

#include <QTemporaryDir>

#include <chrono>
#include <functional>
#include <string>

namespace Kestrion::GuiTest {

/// The test process's QApplication (offscreen).
void ensureApplication();

/// Ensures the QApplication as a fixture member, before the fixture's widgets are made.
struct Application {
    Application() { ensureApplication(); }
};

/// Processes Qt events until the condition holds; false after the timeout.
bool processEventsUntil(const std::function<bool()>& condition,
                        std::chrono::seconds timeout = std::chrono::seconds(30));

/// A file of tests/data/gui.
std::string dataFile(const std::string& name);

/// Points HOME to an empty temporary folder for its lifetime.
class TemporaryHome {
public:
    TemporaryHome() { qputenv("HOME", m_dir.path().toLocal8Bit()); }
    ~TemporaryHome() { qputenv("HOME", m_previous); }
    std::string path() const { return m_dir.path().toStdString(); }
    /// The user geometry folder below it, created unless `create` is false.
    std::string geometryFolder(bool create = true) const;

private:
    QByteArray m_previous = qgetenv("HOME");
    QTemporaryDir m_dir;
};

} // namespace Kestrion::GuiTest
