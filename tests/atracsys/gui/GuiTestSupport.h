#pragma once

// Helpers of the plugin's user-interface tests: the Qt application, waiting while Qt delivers
// queued calls, and a temporary home folder for the user geometry folder.

#include <QByteArray>
#include <QTemporaryDir>

#include <chrono>
#include <functional>
#include <string>

namespace Kestrion::GuiTest {

/// The test process's QApplication (offscreen).
void ensureApplication();

/// Ensures the QApplication as a member, before the widgets of a fixture are made.
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
    TemporaryHome();
    ~TemporaryHome();
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    std::string path() const;
    /// The user geometry folder below it (created on demand).
    std::string geometryFolder(bool create = true) const;

private:
    QTemporaryDir m_dir;
    QByteArray m_previous;
    bool m_hadPrevious;
};

} // namespace Kestrion::GuiTest
