#include "host/apps/kestrion-gui/HostWindow.h"
#include "host/apps/kestrion-gui/AlgorithmTree.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/InstrumentDock.h"
#include "host/core/Algorithm.h"
#include "host/core/Progress.h"
#include "host/core/Properties.h"
#include "host/core/Time.h"
#include "host/lib/AlgorithmControllerFactory.h"
#include "host/lib/AlgorithmFactory.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/PluginLoader.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/lib/widgets/AlgorithmControllerWidget.h"
#include "host/lib/widgets/PropertiesController.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/lib/widgets/SaveChangesQuestion.h"
#include "host/licensing/LicenseService.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QFileInfo>
#include <QTabWidget>
#include <QTableView>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>

using namespace Kestrion;
using namespace Kestrion::Gui;

namespace {

const std::string PluginDir = KESTRION_TEST_PLUGIN_DIR;

class HostWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestSupport::guiApplication();
        ::unsetenv("KESTRION_LICENSE");
        LicenseService::instance().reload();
    }
};

TEST_F(HostWindowTest, ListsCreatesSavesAndOpensThePluginsAlgorithms) {
    TestSupport::LogCapture capture;
    PluginLoader loader;
    loader.load({PluginDir});
    HostWindow window(FactoryRegistry::instance());
    AlgorithmTree& tree = *window.algorithmTree();
    EXPECT_EQ(tree.algorithmCount(), 2);
    EXPECT_EQ(tree.topLevelItemCount(), 1); // both plugins share the "Test" folder
    QTreeWidgetItem* leaf = tree.findAlgorithm("TestBase.Recorder");
    ASSERT_NE(leaf, nullptr);
    QStringList guiPath;
    for (QTreeWidgetItem* item = leaf; item; item = item->parent())
        guiPath.prepend(item->text(0));
    EXPECT_EQ(guiPath.join(';'), "Test;TestBase;Recorder");

    // Activating the leaf creates and computes the algorithm. The plugin's controller is not a
    // panel: it is initialised, and the host's properties panel shows.
    emit tree.itemActivated(leaf, 0);
    window.session().waitForComputations();
    EXPECT_TRUE(
        capture->contains(Log::Info, "TestPlugin", "TestBase.Recorder computed: label=default value=0"))
        << capture->dump();
    ASSERT_EQ(window.session().workspace().algorithms().size(), 1u);
    const Algorithm* algorithm = window.session().workspace().algorithms()[0].algorithm.get();
    ASSERT_NE(window.session().controller(algorithm), nullptr);
    EXPECT_TRUE(window.session().controller(algorithm)->isInitialized());
    ASSERT_EQ(window.session().panels().size(), 1u);
    EXPECT_NE(qobject_cast<PropertiesController*>(window.session().panels()[0]), nullptr);
    EXPECT_EQ(window.panelArea()->tabText(0), "Recorder");
    EXPECT_EQ(window.session().createAlgorithm("Nobody.Offers"), nullptr);
    EXPECT_TRUE(capture->contains(Log::Error, "kestrion-gui", "Cannot create algorithm \"Nobody.Offers\""));

    QTemporaryDir dir;
    const auto path = [&dir](const char* name) { return dir.filePath(name).toStdString(); };
    // An old workspace is converted when opened; an algorithm nobody offers is kept without a panel.
    std::ofstream(path("old.kws")) << "<properties name=\"Workspace\"><properties name=\"Algorithms\">"
                                      "<properties name=\"TestOld.Recorder\"><param name=\"label\" "
                                      "type=\"string\">kept</param></properties>"
                                      "<properties name=\"Nobody.Offers\"/></properties></properties>\n";
    std::string answer = path("old.kws");
    QtHelpers::ScopedFileDialogHook hook([&](const QtHelpers::FileDialogRequest&) { return answer; });
    SaveChangesQuestion::ScopedHook discard(
        [](const std::string&) { return SaveChangesQuestion::Answer::Discard; });
    window.openWorkspaceDialog();
    window.session().waitForComputations();
    EXPECT_EQ(window.workspaceFile(), path("old.kws"));
    const std::string kept = "TestBase.Recorder computed: label=kept value=0";
    EXPECT_EQ(capture->count(Log::Info, "TestPlugin", kept), 1u) << capture->dump();
    EXPECT_EQ(window.panelArea()->count(), 1); // the earlier panel was closed
    EXPECT_EQ(window.session().workspace().algorithms().size(), 2u);

    answer = path("copy");
    window.saveWorkspaceDialog();
    EXPECT_EQ(window.workspaceFile(), path("copy.kws"));
    window.newWorkspace();
    EXPECT_EQ(window.panelArea()->count(), 0);
    EXPECT_FALSE(window.openWorkspace(path("copy.kws"))); // the unknown algorithm is still a problem
    window.session().waitForComputations();
    EXPECT_EQ(capture->count(Log::Info, "TestPlugin", kept), 2u); // the saved copy kept the setting

    answer.clear(); // a cancelled dialog changes nothing
    window.openWorkspaceDialog();
    EXPECT_EQ(window.panelArea()->count(), 1);
    EXPECT_FALSE(window.openWorkspace(path("missing.kws")));
    EXPECT_EQ(window.panelArea()->count(), 0);
}

TEST_F(HostWindowTest, AsksToSaveAChangedWorkspaceBeforeQuittingClosingOrOpeningAnother) {
    PluginLoader loader;
    loader.load({PluginDir});
    HostWindow window(FactoryRegistry::instance());
    QTemporaryDir dir;
    const std::string saved = dir.filePath("bench.kws").toStdString();
    std::vector<std::string> questions;
    SaveChangesQuestion::Answer answer = SaveChangesQuestion::Answer::Cancel;
    SaveChangesQuestion::ScopedHook ask([&](const std::string& text) {
        questions.push_back(text);
        return answer;
    });
    std::vector<QtHelpers::FileDialogRequest> dialogs;
    std::string chosen;
    QtHelpers::ScopedFileDialogHook files([&](const QtHelpers::FileDialogRequest& request) {
        dialogs.push_back(request);
        return chosen;
    });
    const auto closeWindow = [&window] {
        QCloseEvent event;
        QCoreApplication::sendEvent(&window, &event);
        return event.isAccepted();
    };
    const auto createRecorder = [&window] {
        ASSERT_NE(window.session().createAlgorithm("TestBase.Recorder"), nullptr);
        window.session().waitForComputations();
    };

    EXPECT_TRUE(closeWindow()) << "an unchanged workspace closes at once";
    EXPECT_TRUE(questions.empty());

    // Cancel keeps everything; Discard lets it go.
    createRecorder();
    EXPECT_TRUE(window.isWorkspaceChanged());
    EXPECT_FALSE(closeWindow());
    EXPECT_EQ(questions, std::vector<std::string>{"Save the changes to the new workspace before quitting?"});
    EXPECT_EQ(window.session().panels().size(), 1u);
    answer = SaveChangesQuestion::Answer::Discard;
    window.newWorkspace();
    EXPECT_EQ(questions.back(), "Save the changes to the new workspace before starting a new workspace?");
    EXPECT_EQ(window.session().panels().size(), 0u);
    EXPECT_TRUE(dialogs.empty());

    // Save asks for a file for a new workspace; a cancelled file dialog cancels the action.
    createRecorder();
    answer = SaveChangesQuestion::Answer::Save;
    window.openWorkspaceDialog();
    ASSERT_EQ(dialogs.size(), 1u);
    EXPECT_EQ(dialogs[0].kind, QtHelpers::FileDialogRequest::Kind::Save);
    EXPECT_EQ(window.session().panels().size(), 1u) << "not saved: not lost";
    chosen = saved;
    EXPECT_TRUE(closeWindow());
    EXPECT_EQ(window.workspaceFile(), saved);
    EXPECT_TRUE(QFileInfo::exists(QString::fromStdString(saved)));

    // A workspace opened and edited is saved to its own file, without a file dialog.
    questions.clear();
    dialogs.clear();
    ASSERT_TRUE(window.openWorkspace(saved));
    window.session().waitForComputations();
    EXPECT_FALSE(window.isWorkspaceChanged()) << "as opened";
    Properties edit;
    edit.setParam("label", std::string("edited"));
    window.session().workspace().algorithms().at(0).algorithm->configure(&edit);
    EXPECT_TRUE(window.isWorkspaceChanged());
    chosen.clear(); // a file dialog now would cancel the question's Save
    EXPECT_TRUE(closeWindow());
    EXPECT_EQ(questions,
              std::vector<std::string>{"Save the changes to the workspace " + saved + " before quitting?"});
    EXPECT_TRUE(dialogs.empty());
    std::ifstream file(saved);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("edited"), std::string::npos) << text;

    // The dialogs start at the workspace: Save As proposes its file, Open its folder.
    ASSERT_TRUE(window.openWorkspace(saved));
    window.session().waitForComputations();
    window.saveWorkspaceDialog();
    window.openWorkspaceDialog();
    ASSERT_EQ(dialogs.size(), 2u);
    EXPECT_EQ(dialogs[0].startPath, saved);
    EXPECT_EQ(dialogs[1].startPath, dir.path().toStdString());
}

TEST_F(HostWindowTest, TheInstrumentTableShowsItsNumbersAtTheDefaultWindowSize) {
    HostWindow window(FactoryRegistry::instance());
    window.resize(1280, 800);
    window.show();
    InstrumentView& view = *window.instrumentDock()->view();
    struct FedStream : TrackingStream {
        FedStream()
            : TrackingStream("fed") {}
        std::vector<TrackingInstrument> instruments() const override { return {}; }
        using TrackingStream::emitStreamData;
    } stream;
    view.setStream(&stream);
    TrackingInstrument tool(TrackerID("atracsys-1000", "newtool.ini"));
    tool.quality = 0.993;
    tool.matrix.block<3, 1>(0, 3) = Eigen::Vector3d(-123.45, 67.89, 1234.56);
    stream.emitStreamData(std::make_shared<TrackingStreamData>(nullptr, std::vector<TrackingInstrument>{tool},
                                                               Time::utcMilliseconds(), 1));
    view.refresh();
    for (int i = 0; i < 5; ++i)
        QCoreApplication::processEvents(); // the window's layout settles
    const int width = view.table()->viewport()->width();
    EXPECT_TRUE(view.table()->isColumnHidden(InstrumentTableModel::Id)) << "unnamed: the name is the id";
    for (int column = InstrumentTableModel::Name; column <= InstrumentTableModel::LastSeen; ++column) {
        const QRect cell = view.table()->visualRect(view.model()->index(0, column));
        EXPECT_LE(cell.right(), width) << "column " << column << " of a table " << width << " px wide";
    }
    view.setStream(nullptr);
}

/// An algorithm whose computation lasts until the test releases it.
struct SlowGate {
    std::mutex mutex; // the pool thread computes, the test releases and reads
    std::condition_variable changed;
    bool released = false;
    int started = 0;
    int ended = 0;
    std::thread::id thread;
} g_slow;
std::vector<std::string> g_events; // GUI thread only: what panels were given, what ended when

class SlowAlgorithm : public Algorithm {
public:
    ~SlowAlgorithm() override { g_events.push_back("algorithm destroyed"); }
    void compute() override {
        std::unique_lock<std::mutex> lock(g_slow.mutex);
        ++g_slow.started;
        g_slow.thread = std::this_thread::get_id();
        g_slow.changed.notify_all();
        g_slow.changed.wait(lock, [] { return g_slow.released; });
        ++g_slow.ended;
    }
};

class ProbePanel : public AlgorithmControllerWidget {
public:
    using AlgorithmControllerWidget::AlgorithmControllerWidget;
    ~ProbePanel() override { g_events.push_back("panel destroyed"); }
    void init() override {
        AlgorithmControllerWidget::init();
        g_events.push_back(std::string("init: display ") + (displayWidget() ? "set" : "null") + ", window " +
                           (mainWindow() ? "set" : "null") + ", shown in " +
                           (parentWidget() ? "window" : "nothing"));
    }
};

class ProbeControllerFactory : public AlgorithmControllerFactory {
public:
    ProbeControllerFactory()
        : AlgorithmControllerFactory("Probe", true) {}
    AlgorithmController* create(Algorithm* algorithm) override {
        return dynamic_cast<SlowAlgorithm*>(algorithm) ? new ProbePanel(algorithm) : nullptr;
    }
};

TEST_F(HostWindowTest, ComputesAlgorithmsOffTheGuiThreadOneAtATimeWithProgress) {
    auto factory = std::make_unique<AlgorithmFactory>("Slow", true);
    factory->registerAlgorithm<SlowAlgorithm>("Slow", "Tools;Slow");
    FactoryRegistry::instance().addAlgorithmFactory(std::move(factory), "test");
    FactoryRegistry::instance().addControllerFactory(std::make_unique<ProbeControllerFactory>(), "test");
    auto release = [] {
        std::lock_guard<std::mutex> lock(g_slow.mutex);
        g_slow.released = true;
        g_slow.changed.notify_all();
    };
    {
        HostWindow window(FactoryRegistry::instance());
        // Both return at once; the panels come when their computations have ended.
        ASSERT_NE(window.session().createAlgorithm("Slow.Slow"), nullptr);
        ASSERT_NE(window.session().createAlgorithm("Slow.Slow"), nullptr);
        EXPECT_TRUE(window.session().isComputing());
        EXPECT_EQ(window.panelArea()->count(), 0);
        ASSERT_EQ(window.progress()->tasks().size(), 1u);
        EXPECT_EQ(window.progress()->tasks()[0]->description(), "Computing Slow.Slow");
        {
            std::unique_lock<std::mutex> lock(g_slow.mutex);
            ASSERT_TRUE(
                g_slow.changed.wait_for(lock, std::chrono::seconds(30), [] { return g_slow.started == 1; }));
            EXPECT_NE(g_slow.thread, std::this_thread::get_id());
        }
        release();
        ASSERT_TRUE(TestSupport::waitFor([&] { return window.panelArea()->count() == 2; }));
        const std::string init = "init: display set, window set, shown in window";
        EXPECT_EQ(g_events, (std::vector<std::string>{init, init}));
        EXPECT_FALSE(window.session().isComputing());
        EXPECT_TRUE(window.progress()->tasks().empty());

        // Closing waits for a running computation and drops the queued ones.
        {
            std::lock_guard<std::mutex> lock(g_slow.mutex);
            g_slow.released = false;
        }
        window.session().createAlgorithm("Slow.Slow");
        window.session().createAlgorithm("Slow.Slow");
        std::thread user([&] {
            std::unique_lock<std::mutex> lock(g_slow.mutex);
            g_slow.changed.wait(lock, [] { return g_slow.started == 3; });
            lock.unlock();
            release();
        });
        window.session().closeAll();
        user.join();
        EXPECT_EQ(g_slow.ended, 3);
        // Panels end before their algorithms (the queued one never had a panel).
        const auto algorithmGone = std::find(g_events.begin(), g_events.end(), "algorithm destroyed");
        EXPECT_TRUE(std::find(algorithmGone, g_events.end(), "panel destroyed") == g_events.end() &&
                    std::count(algorithmGone, g_events.end(), "algorithm destroyed") == 4)
            << ::testing::PrintToString(g_events);
        EXPECT_EQ(window.panelArea()->count(), 0);
        EXPECT_FALSE(window.session().isComputing());
    }
    FactoryRegistry::instance().removeOwnedBy("test");
}

} // namespace
