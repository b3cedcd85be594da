// The desktop host's ROS 2 publisher: offered in the algorithm list, and publishing again when a
// saved workspace is opened.
#include "host/apps/kestrion-gui/Ros2Publishing.h"
#include "host/apps/kestrion-gui/AlgorithmTree.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/HostWindow.h"
#include "host/lib/FactoryRegistry.h"
#include "host/ros2/Ros2PublisherAlgorithm.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

using namespace Kestrion;
using namespace Kestrion::Gui;

namespace {

const Ros2::Ros2PublisherAlgorithm* publisher(HostWindow& window) {
    const auto& items = window.session().workspace().algorithms();
    return items.size() == 1 ? dynamic_cast<const Ros2::Ros2PublisherAlgorithm*>(items[0].algorithm.get())
                             : nullptr;
}

TEST(Ros2Publishing, ListedAndPublishingAgainFromASavedWorkspace) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    ::unsetenv("CYCLONEDDS_URI");
    Ros2Publishing::registerAlgorithm();
    const int domain = 100 + static_cast<int>(::getpid() % 100);
    {
        HostWindow window(FactoryRegistry::instance());
        EXPECT_NE(window.algorithmTree()->findAlgorithm("Kestrion.Ros2Publisher"), nullptr);

        QTemporaryDir dir;
        const std::string file = dir.filePath("publish.kws").toStdString();
        std::ofstream(file)
            << "<properties name=\"Workspace\"><properties name=\"Algorithms\">"
               "<properties name=\"Kestrion.Ros2Publisher\"><param name=\"domain\" type=\"int\">"
            << domain
            << "</param><param name=\"namespace\" type=\"string\">lab/cam</param>"
               "</properties></properties></properties>";
        ASSERT_TRUE(window.openWorkspace(file)) << capture->dump();
        window.session().waitForComputations();
        ASSERT_NE(publisher(window), nullptr);
        EXPECT_EQ(publisher(window)->domainId(), domain);
        const std::string started =
            "ROS 2 publisher on domain " + std::to_string(domain) +
            " (loopback only): /tf, /lab/cam/<tool>/pose, /lab/cam/fiducials, /diagnostics";
        EXPECT_TRUE(capture->contains(Log::Info, "Ros2Publisher", started)) << capture->dump();

        ASSERT_TRUE(window.saveWorkspace(file));
        window.newWorkspace();
        EXPECT_TRUE(capture->contains(Log::Info, "Ros2Publisher", "ROS 2 publisher stopped"));
        std::stringstream saved;
        saved << std::ifstream(file).rdbuf();
        EXPECT_NE(saved.str().find("lab/cam"), std::string::npos) << saved.str();
        ASSERT_TRUE(window.openWorkspace(file));
        window.session().waitForComputations();
        ASSERT_NE(publisher(window), nullptr);
        EXPECT_EQ(publisher(window)->domainId(), domain);
    }
    FactoryRegistry::instance().removeOwnedBy("kestrion-gui");
}

} // namespace
