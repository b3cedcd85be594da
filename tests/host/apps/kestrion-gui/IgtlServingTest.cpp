// The desktop host's OpenIGTLink server: offered in the algorithm list, and serving again when a
// saved workspace is opened.
#include "host/apps/kestrion-gui/IgtlServing.h"
#include "host/apps/kestrion-gui/AlgorithmTree.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/HostWindow.h"
#include "host/igtl/IgtlServerAlgorithm.h"
#include "host/lib/FactoryRegistry.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>

using namespace Kestrion;
using namespace Kestrion::Gui;

namespace {

const Igtl::IgtlServerAlgorithm* server(HostWindow& window) {
    const auto& items = window.session().workspace().algorithms();
    return items.size() == 1 ? dynamic_cast<const Igtl::IgtlServerAlgorithm*>(items[0].algorithm.get())
                             : nullptr;
}

TEST(IgtlServing, ListedAndServingAgainFromASavedWorkspace) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    IgtlServing::registerAlgorithm();
    {
        HostWindow window(FactoryRegistry::instance());
        EXPECT_NE(window.algorithmTree()->findAlgorithm("Kestrion.OpenIGTLinkServer"), nullptr);

        QTemporaryDir dir;
        const std::string file = dir.filePath("serve.kws").toStdString();
        std::ofstream(file) << "<properties name=\"Workspace\"><properties name=\"Algorithms\">"
                               "<properties name=\"Kestrion.OpenIGTLinkServer\"><param name=\"port\" "
                               "type=\"int\">0</param></properties></properties></properties>";
        ASSERT_TRUE(window.openWorkspace(file)) << capture->dump();
        window.session().waitForComputations();
        ASSERT_NE(server(window), nullptr);
        const int first = server(window)->port();
        EXPECT_GT(first, 0);
        EXPECT_TRUE(capture->contains(Log::Info, "IgtlServer",
                                      "OpenIGTLink server listening on 127.0.0.1:" + std::to_string(first)));

        ASSERT_TRUE(window.saveWorkspace(file));
        window.newWorkspace();
        EXPECT_TRUE(capture->contains(Log::Info, "IgtlServer", "OpenIGTLink server stopped"));
        ASSERT_TRUE(window.openWorkspace(file));
        window.session().waitForComputations();
        ASSERT_NE(server(window), nullptr);
        EXPECT_GT(server(window)->port(), 0);
    }
    FactoryRegistry::instance().removeOwnedBy("kestrion-gui");
}

} // namespace
