// The OpenIGTLink server's panel: Start and Stop with a loopback client listed with its counts,
// mistakes refused as typed without stopping the running server, the reason of a failed start
// where the user looks, and workspaces that keep the settings, never the state.
#include "host/apps/kestrion-gui/IgtlServerPanel.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/HostWindow.h"
#include "host/apps/kestrion-gui/IgtlClientTable.h"
#include "host/apps/kestrion-gui/IgtlServing.h"
#include "host/igtl/IgtlServerAlgorithm.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/widgets/LogAlertWidget.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include "IgtlTestClient.h"

#include <igtlStatusMessage.h>

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace Kestrion;
using namespace Kestrion::Gui;
using Kestrion::Igtl::IgtlTest::IgtlTestClient;

namespace {

void type(QLineEdit* field, const QString& text) { // as a user: select all, then type
    field->selectAll();
    QTest::keyClick(field, Qt::Key_Backspace);
    QTest::keyClicks(field, text);
}

std::string shown(const QLabel* label) {
    return label->isVisibleTo(label->parentWidget()) ? label->text().toStdString() : std::string();
}

std::string listening(int port) {
    return "Listening on 127.0.0.1:" + std::to_string(port);
}

/// The server still serves the client: it answers GET_STATUS with the camera's STATUS.
bool answersGetStatus(IgtlTestClient& client) {
    auto request = igtl::GetStatusMessage::New();
    request->SetDeviceName("camera");
    client.send(Igtl::IgtlTest::packed(request));
    const auto answer = client.next("STATUS");
    return answer && answer->name == "camera";
}

/// A panel on a server set to take a free port; clicks Start when asked.
struct Panel {
    QApplication& application = TestSupport::guiApplication(); // before the first widget
    Igtl::IgtlServerAlgorithm server;
    IgtlServerPanel panel{&server};
    Panel() {
        panel.init();
        type(panel.portEdit(), QStringLiteral("0"));
    }
    void click(QPushButton* button) { QTest::mouseClick(button, Qt::LeftButton); }
};

TEST(IgtlServerPanel, StartAndStopWithALoopbackClientListedWithItsCounts) {
    TestSupport::LogCapture log;
    Panel p;
    EXPECT_EQ(p.panel.bindAddressEdit()->text(), QStringLiteral("127.0.0.1")); // this computer only
    EXPECT_EQ(shown(p.panel.exposureLabel()), "");
    EXPECT_EQ(p.panel.stateLabel()->text(), QStringLiteral("Not listening"));
    EXPECT_FALSE(p.panel.stopButton()->isEnabled());
    p.click(p.panel.startButton());
    const int port = p.server.port();
    ASSERT_GT(port, 0) << log->dump();
    EXPECT_EQ(p.panel.stateLabel()->text().toStdString(), listening(port));
    EXPECT_FALSE(p.panel.startButton()->isEnabled());

    IgtlTestClient client(port);
    ASSERT_TRUE(client.next("STATUS")); // the camera's state, sent to every new client
    IgtlClientTable* table = p.panel.clientTable();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while ((table->rowCount() != 1 || table->cellText(0, IgtlClientTable::Sent) == "0") &&
           std::chrono::steady_clock::now() < deadline)
        QTest::qWait(20); // the panel's timer reads the server's list
    ASSERT_EQ(table->rowCount(), 1);
    EXPECT_EQ(table->cellText(0, IgtlClientTable::Address).toStdString(), client.address());
    EXPECT_EQ(table->cellText(0, IgtlClientTable::Dropped), QStringLiteral("0"));

    p.click(p.panel.stopButton());
    EXPECT_EQ(p.panel.stateLabel()->text(), QStringLiteral("Not listening"));
    EXPECT_EQ(table->rowCount(), 0);
    EXPECT_FALSE(client.next("")); // its connection was closed
    EXPECT_TRUE(log->contains(Log::Info, "IgtlServer", "OpenIGTLink server stopped"));
}

TEST(IgtlServerPanel, TypedMistakesAreRefusedAtOnceAndNeverStopTheServer) {
    TestSupport::LogCapture log;
    Panel p;
    type(p.panel.portEdit(), QStringLiteral("70000"));
    EXPECT_EQ(shown(p.panel.problemLabel()), "Port: the port is not between 0 and 65535");
    EXPECT_FALSE(p.panel.startButton()->isEnabled());
    type(p.panel.portEdit(), QStringLiteral("189a4"));
    EXPECT_EQ(shown(p.panel.problemLabel()), "Port: the port \"189a4\" is not a number");
    EXPECT_EQ(p.server.settings().port, 189); // the last valid text typed, "189"
    type(p.panel.portEdit(), QStringLiteral("0"));
    EXPECT_EQ(shown(p.panel.problemLabel()), "");
    p.click(p.panel.startButton());
    const int port = p.server.port();
    ASSERT_GT(port, 0) << log->dump();
    IgtlTestClient client(port);
    ASSERT_TRUE(client.next("STATUS"));

    type(p.panel.bindAddressEdit(), QStringLiteral("127.0.0.300"));
    EXPECT_EQ(shown(p.panel.problemLabel()),
              "Bind address \"127.0.0.300\": not an IPv4 address (e.g. 127.0.0.1, this computer only)");
    EXPECT_FALSE(p.panel.startButton()->isEnabled());
    EXPECT_EQ(shown(p.panel.pendingLabel()),
              "The server goes on listening on 127.0.0.1:" + std::to_string(port) +
                  "; the settings typed are not valid.");
    QTest::keyClick(p.panel.bindAddressEdit(), Qt::Key_Return);
    p.click(p.panel.startButton());
    EXPECT_EQ(p.server.port(), port);
    EXPECT_TRUE(answersGetStatus(client));

    type(p.panel.bindAddressEdit(), QStringLiteral("0.0.0.0")); // named, never started here
    EXPECT_NE(shown(p.panel.exposureLabel()), "");
    EXPECT_EQ(p.panel.startButton()->text(), QStringLiteral("Restart"));
    EXPECT_TRUE(p.panel.startButton()->isEnabled());
    type(p.panel.bindAddressEdit(), QStringLiteral("127.0.0.1"));
    EXPECT_FALSE(p.panel.startButton()->isEnabled()); // nothing to apply
    EXPECT_EQ(shown(p.panel.pendingLabel()), "");
}

TEST(IgtlServerPanel, APortInUseShowsTheReasonAndKeepsTheRunningServer) {
    TestSupport::LogCapture log;
    Igtl::IgtlServerSettings free;
    free.port = 0;
    Igtl::IgtlServer blocker(free); // takes a port on the loopback address first
    ASSERT_TRUE(blocker.start());
    const std::string taken = std::to_string(blocker.port());
    const std::string reason =
        "OpenIGTLink server cannot listen on 127.0.0.1:" + taken + ": Address already in use";
    Panel p;
    type(p.panel.portEdit(), QString::fromStdString(taken));
    p.click(p.panel.startButton());
    EXPECT_EQ(shown(p.panel.errorLabel()), reason);
    EXPECT_EQ(p.panel.stateLabel()->text(), QStringLiteral("Not listening"));
    EXPECT_TRUE(log->contains(Log::Error, "IgtlServer", reason));

    type(p.panel.portEdit(), QStringLiteral("0"));
    p.click(p.panel.startButton());
    EXPECT_EQ(shown(p.panel.errorLabel()), "");
    const int port = p.server.port();
    IgtlTestClient client(port);
    ASSERT_TRUE(client.next("STATUS")); // the camera's state, sent to every new client
    type(p.panel.portEdit(), QString::fromStdString(taken));
    p.click(p.panel.startButton()); // "Restart" onto the taken port fails
    EXPECT_EQ(shown(p.panel.errorLabel()), reason);
    EXPECT_EQ(p.panel.stateLabel()->text().toStdString(), listening(port));
    EXPECT_TRUE(answersGetStatus(client));

    blocker.stop();
    p.click(p.panel.startButton());
    EXPECT_EQ(p.server.port(), std::stoi(taken));
    EXPECT_EQ(shown(p.panel.errorLabel()), "");
    EXPECT_FALSE(client.next("")); // the old server closed its clients
}

TEST(IgtlServerPanel, WorkspacesKeepTheSettingsNeverTheState) {
    TestSupport::guiApplication();
    TestSupport::LogCapture log;
    IgtlServing::registerAlgorithm();
    {
        Igtl::IgtlServerSettings free;
        free.port = 0;
        Igtl::IgtlServer blocker(free);
        ASSERT_TRUE(blocker.start());
        const std::string taken = std::to_string(blocker.port());
        const std::string reason =
            "OpenIGTLink server cannot listen on 127.0.0.1:" + taken + ": Address already in use";
        HostWindow window(FactoryRegistry::instance());
        QTemporaryDir dir;
        const std::string old = dir.filePath("old.kws").toStdString(); // with the state, as once saved
        std::ofstream(old) << "<properties name=\"Workspace\"><properties name=\"Algorithms\"><properties "
                              "name=\"Kestrion.OpenIGTLinkServer\"><param name=\"port\" type=\"int\">"
                           << taken
                           << "</param><param name=\"listening\" type=\"string\">127.0.0.1:18944</param>"
                              "</properties></properties></properties>";
        ASSERT_TRUE(window.openWorkspace(old)) << log->dump();
        window.session().waitForComputations();
        EXPECT_TRUE(log->contains(Log::Error, "Kestrion.OpenIGTLinkServer",
                                  "Algorithm Kestrion.OpenIGTLinkServer failed: " + reason));
        EXPECT_EQ(log->countContaining("knows no parameter"), 0u) << log->dump();
        ASSERT_EQ(window.session().panels().size(), 1u);
        auto* panel = qobject_cast<IgtlServerPanel*>(window.session().panels()[0]);
        ASSERT_NE(panel, nullptr);
        EXPECT_EQ(shown(panel->errorLabel()), reason);
        window.logAlert()->flush();
        EXPECT_NE(window.logAlert()->text().toStdString().find(reason), std::string::npos);
        const int unread = window.logAlert()->unread();

        type(panel->portEdit(), QStringLiteral("0"));
        QTest::mouseClick(panel->startButton(), Qt::LeftButton);
        ASSERT_TRUE(panel->stateLabel()->text().startsWith(QStringLiteral("Listening on 127.0.0.1:")));
        window.logAlert()->flush();
        EXPECT_EQ(window.logAlert()->unread(), unread - 2); // the server's and its algorithm's
        EXPECT_TRUE(window.isWorkspaceChanged());
        const std::string saved = dir.filePath("saved.kws").toStdString();
        ASSERT_TRUE(window.saveWorkspace(saved));
        std::stringstream content;
        content << std::ifstream(saved).rdbuf();
        for (const char* setting :
             {"<param name=\"port\" type=\"int\">0</param>",
              "<param name=\"bindAddress\" type=\"string\">127.0.0.1</param>", "<param name=\"imageRateHz\""})
            EXPECT_NE(content.str().find(setting), std::string::npos) << setting << content.str();
        EXPECT_EQ(content.str().find("listening"), std::string::npos) << content.str();
        panel->stop();
        EXPECT_FALSE(window.isWorkspaceChanged()); // stopping is no change to save
    }
    FactoryRegistry::instance().removeOwnedBy("kestrion-gui");
}

} // namespace
