// The OpenIGTLink server's panel in the desktop host: Start and Stop with a client on the loopback
// address listed with its counts, settings checked as they are typed without ever stopping the
// running server, the real reason of a failed start where the user looks, and a workspace that
// keeps the settings, never the state.
#include "host/apps/kestrion-gui/IgtlServerPanel.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/HostWindow.h"
#include "host/apps/kestrion-gui/IgtlClientTable.h"
#include "host/apps/kestrion-gui/IgtlServing.h"
#include "host/igtl/IgtlServer.h"
#include "host/igtl/IgtlServerAlgorithm.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/widgets/LogAlertWidget.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include "IgtlTestClient.h"

#include <igtlStatusMessage.h>

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>

using namespace Kestrion;
using namespace Kestrion::Gui;
using Kestrion::Igtl::IgtlServerAlgorithm;
using Kestrion::Igtl::IgtlTest::IgtlTestClient;

namespace {

/// Runs the event loop until the condition holds (generous deadline: never a timing assumption).
bool waitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        QTest::qWait(10);
    }
    return true;
}

/// Replaces the field's text as a user would: select all, then type.
void type(QLineEdit* field, const QString& text) {
    field->selectAll();
    QTest::keyClick(field, Qt::Key_Backspace);
    QTest::keyClicks(field, text);
}

/// Whether the server still serves the client: it answers GET_STATUS with the camera's STATUS.
bool answersGetStatus(IgtlTestClient& client) {
    auto request = igtl::GetStatusMessage::New();
    request->SetDeviceName("camera");
    client.send(Igtl::IgtlTest::packed(request));
    const auto answer = client.next("STATUS", std::chrono::seconds(20));
    return answer && answer->name == "camera";
}

std::string text(const QLabel* label) {
    return label->isVisibleTo(label->parentWidget()) ? label->text().toStdString() : std::string();
}

/// A panel on a server that takes a free port, shown as the host shows it.
struct PanelOnServer {
    QApplication& application = TestSupport::guiApplication(); // before the first widget
    IgtlServerAlgorithm server;
    IgtlServerPanel panel{&server};
    PanelOnServer() {
        panel.init();
        panel.show();
        type(panel.portEdit(), QStringLiteral("0"));
    }
};

TEST(IgtlServerPanel, StartAndStopWithALoopbackClientListedWithItsCounts) {
    TestSupport::LogCapture log;
    PanelOnServer fixture;
    IgtlServerPanel& panel = fixture.panel;
    EXPECT_EQ(panel.bindAddressEdit()->text(), QStringLiteral("127.0.0.1")); // this computer only
    EXPECT_EQ(text(panel.exposureLabel()), "");
    EXPECT_EQ(panel.stateLabel()->text(), QStringLiteral("Not listening"));
    EXPECT_TRUE(panel.startButton()->isEnabled());
    EXPECT_FALSE(panel.stopButton()->isEnabled());

    QTest::mouseClick(panel.startButton(), Qt::LeftButton);
    const int port = fixture.server.port();
    ASSERT_GT(port, 0) << log->dump();
    EXPECT_EQ(panel.stateLabel()->text().toStdString(), "Listening on 127.0.0.1:" + std::to_string(port));
    EXPECT_FALSE(panel.startButton()->isEnabled());
    EXPECT_TRUE(panel.stopButton()->isEnabled());

    IgtlTestClient client(port);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(client.next("STATUS")); // the camera's state, sent to every new client
    IgtlClientTable* table = panel.clientTable();
    ASSERT_TRUE(waitFor([&] {
        return table->rowCount() == 1 && table->cellText(0, IgtlClientTable::Sent) != "0";
    })) << table->rowCount();
    EXPECT_EQ(table->cellText(0, IgtlClientTable::Address).toStdString(), client.address());
    EXPECT_EQ(table->cellText(0, IgtlClientTable::Dropped), QStringLiteral("0"));
    EXPECT_EQ(table->cellText(0, IgtlClientTable::TrackingData), QString());
    const auto listed = fixture.server.clients();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_GE(static_cast<long long>(listed[0].messagesSent),
              table->cellText(0, IgtlClientTable::Sent).toLongLong());

    QTest::mouseClick(panel.stopButton(), Qt::LeftButton);
    EXPECT_EQ(panel.stateLabel()->text(), QStringLiteral("Not listening"));
    EXPECT_EQ(table->rowCount(), 0);
    EXPECT_FALSE(client.next("", std::chrono::seconds(10))); // its connection was closed
    EXPECT_TRUE(log->contains(Log::Info, "IgtlServer", "OpenIGTLink server stopped"));
    EXPECT_TRUE(panel.startButton()->isEnabled());

    QTest::mouseClick(panel.startButton(), Qt::LeftButton); // and again
    EXPECT_GT(fixture.server.port(), 0);
    IgtlTestClient again(fixture.server.port());
    EXPECT_TRUE(again.next("STATUS"));
}

TEST(IgtlServerPanel, TypedMistakesAreRefusedAtOnceAndNeverStopTheServer) {
    TestSupport::LogCapture log;
    PanelOnServer fixture;
    IgtlServerPanel& panel = fixture.panel;

    // Stopped: a mistake disables Start, with its reason.
    type(panel.portEdit(), QStringLiteral("70000"));
    EXPECT_EQ(text(panel.problemLabel()), "Port: the port is not between 0 and 65535");
    EXPECT_FALSE(panel.startButton()->isEnabled());
    type(panel.portEdit(), QStringLiteral("189a4"));
    EXPECT_EQ(text(panel.problemLabel()), "Port: the port \"189a4\" is not a number");
    EXPECT_EQ(fixture.server.settings().port, 189); // the last valid text typed, "189"
    type(panel.portEdit(), QStringLiteral("0"));
    EXPECT_EQ(text(panel.problemLabel()), "");
    EXPECT_TRUE(panel.startButton()->isEnabled());

    QTest::mouseClick(panel.startButton(), Qt::LeftButton);
    const int port = fixture.server.port();
    ASSERT_GT(port, 0) << log->dump();
    IgtlTestClient client(port);
    ASSERT_TRUE(client.next("STATUS"));

    // Running: a mistyped address is refused as typed; the server and its client go on.
    type(panel.bindAddressEdit(), QStringLiteral("127.0.0.300"));
    EXPECT_EQ(text(panel.problemLabel()),
              "Bind address \"127.0.0.300\": not an IPv4 address (e.g. 127.0.0.1, this computer only)");
    EXPECT_FALSE(panel.startButton()->isEnabled());
    EXPECT_EQ(text(panel.pendingLabel()), "The server goes on listening on 127.0.0.1:" +
                                              std::to_string(port) + "; the settings typed are not valid.");
    EXPECT_EQ(fixture.server.settings().bindAddress, "127.0.0.30"); // the last valid text typed
    QTest::keyClick(panel.bindAddressEdit(), Qt::Key_Return);
    QTest::mouseClick(panel.startButton(), Qt::LeftButton);
    EXPECT_EQ(fixture.server.port(), port);
    EXPECT_TRUE(answersGetStatus(client));
    EXPECT_EQ(log->countContaining("cannot listen"), 0u);

    // Another computer's reach is named before it is used; Restart would apply it.
    type(panel.bindAddressEdit(), QStringLiteral("0.0.0.0"));
    EXPECT_EQ(text(panel.problemLabel()), "");
    EXPECT_NE(text(panel.exposureLabel()), "");
    EXPECT_EQ(panel.startButton()->text(), QStringLiteral("Restart"));
    EXPECT_TRUE(panel.startButton()->isEnabled());
    type(panel.bindAddressEdit(), QStringLiteral("127.0.0.1"));
    EXPECT_EQ(text(panel.exposureLabel()), "");
    EXPECT_FALSE(panel.startButton()->isEnabled()); // nothing to apply
    EXPECT_EQ(text(panel.pendingLabel()), "");
    EXPECT_TRUE(answersGetStatus(client));
    EXPECT_EQ(fixture.server.port(), port);
}

TEST(IgtlServerPanel, APortInUseShowsTheReasonAndKeepsTheRunningServer) {
    TestSupport::LogCapture log;
    Igtl::IgtlServerSettings holderSettings; // a server takes a port on the loopback address first
    holderSettings.port = 0;
    Igtl::IgtlServer blocker(holderSettings);
    ASSERT_TRUE(blocker.start());
    const std::string taken = std::to_string(blocker.port());
    const std::string reason =
        "OpenIGTLink server cannot listen on 127.0.0.1:" + taken + ": Address already in use";

    PanelOnServer fixture;
    IgtlServerPanel& panel = fixture.panel;
    type(panel.portEdit(), QString::fromStdString(taken));
    QTest::mouseClick(panel.startButton(), Qt::LeftButton);
    EXPECT_EQ(text(panel.errorLabel()), reason);
    EXPECT_EQ(panel.stateLabel()->text(), QStringLiteral("Not listening"));
    EXPECT_TRUE(log->contains(Log::Error, "IgtlServer", reason));

    // Running on a free port, a restart on the taken one fails and leaves it serving.
    type(panel.portEdit(), QStringLiteral("0"));
    QTest::mouseClick(panel.startButton(), Qt::LeftButton);
    EXPECT_EQ(text(panel.errorLabel()), "");
    const int port = fixture.server.port();
    ASSERT_GT(port, 0);
    IgtlTestClient client(port);
    ASSERT_TRUE(client.next("STATUS"));
    type(panel.portEdit(), QString::fromStdString(taken));
    ASSERT_EQ(panel.startButton()->text(), QStringLiteral("Restart"));
    QTest::mouseClick(panel.startButton(), Qt::LeftButton);
    EXPECT_EQ(text(panel.errorLabel()), reason);
    EXPECT_TRUE(answersGetStatus(client));
    EXPECT_EQ(panel.stateLabel()->text().toStdString(), "Listening on 127.0.0.1:" + std::to_string(port));
    EXPECT_EQ(fixture.server.port(), port);
    ASSERT_TRUE(waitFor([&] { return panel.clientTable()->rowCount() == 1; }));
    EXPECT_EQ(panel.clientTable()->cellText(0, IgtlClientTable::Address).toStdString(), client.address());

    // Once the port is free, the restart moves there and the failure is no longer shown.
    blocker.stop();
    QTest::mouseClick(panel.startButton(), Qt::LeftButton);
    EXPECT_EQ(fixture.server.port(), std::stoi(taken));
    EXPECT_EQ(text(panel.errorLabel()), "");
    EXPECT_FALSE(client.next("", std::chrono::seconds(10))); // the old server closed its clients
}

TEST(IgtlServerPanel, WorkspacesKeepTheSettingsNeverTheState) {
    TestSupport::guiApplication();
    TestSupport::LogCapture log;
    IgtlServing::registerAlgorithm();
    {
        Igtl::IgtlServerSettings holderSettings;
        holderSettings.port = 0;
        Igtl::IgtlServer blocker(holderSettings);
        ASSERT_TRUE(blocker.start());
        const std::string taken = std::to_string(blocker.port());

        HostWindow window(FactoryRegistry::instance());
        QTemporaryDir dir;
        // As saved before the state left the workspace: "listening" is read without a warning.
        const std::string old = dir.filePath("old.kws").toStdString();
        std::ofstream(old) << "<properties name=\"Workspace\"><properties name=\"Algorithms\">"
                              "<properties name=\"Kestrion.OpenIGTLinkServer\">"
                              "<param name=\"port\" type=\"int\">"
                           << taken
                           << "</param><param name=\"bindAddress\" type=\"string\">127.0.0.1</param>"
                              "<param name=\"listening\" type=\"string\">127.0.0.1:18944</param>"
                              "</properties></properties></properties>";
        ASSERT_TRUE(window.openWorkspace(old)) << log->dump();
        window.session().waitForComputations();
        const std::string reason =
            "OpenIGTLink server cannot listen on 127.0.0.1:" + taken + ": Address already in use";
        EXPECT_TRUE(log->contains(Log::Error, "kestrion-gui",
                                  "Algorithm Kestrion.OpenIGTLinkServer failed: " + reason))
            << log->dump();
        EXPECT_EQ(log->countContaining("knows no parameter"), 0u) << log->dump();
        ASSERT_EQ(window.session().panels().size(), 1u);
        auto* panel = qobject_cast<IgtlServerPanel*>(window.session().panels()[0]);
        ASSERT_NE(panel, nullptr);
        EXPECT_EQ(text(panel->errorLabel()), reason);
        EXPECT_EQ(panel->portEdit()->text().toStdString(), taken);

        // The status bar says why, and a start that succeeds withdraws the server's alert.
        window.logAlert()->flush();
        EXPECT_NE(window.logAlert()->text().toStdString().find(reason), std::string::npos)
            << window.logAlert()->text().toStdString();
        const int unread = window.logAlert()->unread();
        type(panel->portEdit(), QStringLiteral("0"));
        type(panel->bindAddressEdit(), QStringLiteral("127.0.0.1x")); // not taken: not valid
        QTest::mouseClick(panel->startButton(), Qt::LeftButton);
        EXPECT_EQ(panel->stateLabel()->text(), QStringLiteral("Not listening"));
        type(panel->bindAddressEdit(), QStringLiteral("127.0.0.1"));
        QTest::mouseClick(panel->startButton(), Qt::LeftButton);
        EXPECT_TRUE(panel->stateLabel()->text().startsWith(QStringLiteral("Listening on 127.0.0.1:")));
        window.logAlert()->flush();
        EXPECT_EQ(window.logAlert()->unread(), unread - 1);
        EXPECT_TRUE(window.isWorkspaceChanged());

        const std::string saved = dir.filePath("saved.kws").toStdString();
        ASSERT_TRUE(window.saveWorkspace(saved));
        std::stringstream content;
        content << std::ifstream(saved).rdbuf();
        EXPECT_NE(content.str().find("<param name=\"port\" type=\"int\">0</param>"), std::string::npos)
            << content.str();
        EXPECT_NE(content.str().find("<param name=\"bindAddress\" type=\"string\">127.0.0.1</param>"),
                  std::string::npos);
        EXPECT_NE(content.str().find("name=\"imageRateHz\""), std::string::npos);
        EXPECT_EQ(content.str().find("listening"), std::string::npos) << content.str();
        EXPECT_FALSE(window.isWorkspaceChanged()); // the state changing is no change to save
        panel->stop();
        EXPECT_FALSE(window.isWorkspaceChanged());

        ASSERT_TRUE(window.openWorkspace(saved));
        window.session().waitForComputations();
        ASSERT_EQ(window.session().panels().size(), 1u);
        panel = qobject_cast<IgtlServerPanel*>(window.session().panels()[0]);
        ASSERT_NE(panel, nullptr);
        EXPECT_TRUE(panel->stateLabel()->text().startsWith(QStringLiteral("Listening on 127.0.0.1:")));
        EXPECT_EQ(log->countContaining("knows no parameter"), 0u) << log->dump();
    }
    FactoryRegistry::instance().removeOwnedBy("kestrion-gui");
}

} // namespace
