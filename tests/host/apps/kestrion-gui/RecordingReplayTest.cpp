// "Open Recording...": the desktop host hands the file to the camera plugin's replay set-up and
// says, naming the file, why a recording cannot be played.

#include "host/apps/kestrion-gui/RecordingReplay.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/core/Algorithm.h"
#include "host/core/Properties.h"
#include "host/lib/CommandAlgorithms.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/widgets/MainWindow.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::Gui;

namespace {

/// A replay set-up that plays only the file "good.krec".
struct ReplaySetup : Algorithm {
    void configure(const Properties* properties) override { file = properties->param("File", std::string()); }
    void configuration(Properties* properties) const override {
        properties->setParam("Replaying", file == "good.krec");
        properties->setParam("Error", "recording " + file + ": not a recording file");
    }
    void compute() override {}
    std::string file;
};

} // namespace

TEST(RecordingReplay, SaysWhyARecordingCannotBePlayed) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    MainWindow window;
    GuiSession session(window, FactoryRegistry::instance());

    EXPECT_FALSE(RecordingReplay::open(session, "run.krec"));
    EXPECT_TRUE(capture->contains(Log::Error, "kestrion-gui",
                                  "Cannot open the recording run.krec: no plugin replays recordings (the "
                                  "Atracsys tracking plugin is not loaded)"))
        << capture->dump();

    CommandAlgorithms::instance().add("test", RecordingReplay::SetupAlgorithm,
                                      [] { return std::make_unique<ReplaySetup>(); });
    EXPECT_FALSE(RecordingReplay::open(session, "bad.krec"));
    EXPECT_TRUE(
        capture->contains(Log::Error, "kestrion-gui",
                          "Cannot open the recording bad.krec: recording bad.krec: not a recording file"))
        << capture->dump();
    // Played, in a session without a tracking stream: the camera's stream is asked for (no plugin
    // offers it here).
    EXPECT_FALSE(RecordingReplay::open(session, "good.krec"));
    EXPECT_TRUE(
        capture->contains(Log::Error, "kestrion-gui", "Cannot create algorithm \"Atracsys.SpryTrackStream\""))
        << capture->dump();
    CommandAlgorithms::instance().remove("test");
}
