// The reference and the names chosen in the instrument view on the simulated camera: the view
// shows each tool in the reference's frame, and a workspace saved then keeps both, so that the
// workspace opened again tracks in the same frame under the same names.

#include "atracsys/plugin/AtracsysAlgorithmFactory.h"
#include "atracsys/plugin/AtracsysStreamAlgorithm.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/Workspace.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/stream/state/InstrumentNames.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"

#include <QAction>
#include <QMenu>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

using namespace Kestrion;

namespace {

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

/// The camera's stream of the workspace's one algorithm.
SpryTrack::AtracsysTrackingStream* streamOf(const Workspace& workspace) {
    auto* algorithm =
        dynamic_cast<SpryTrack::AtracsysStreamAlgorithm*>(workspace.algorithms().at(0).algorithm.get());
    return algorithm ? algorithm->stream() : nullptr;
}

QString cell(const InstrumentView& view, int row, int column) {
    return view.model()->data(view.model()->index(row, column)).toString();
}

/// Refreshes the view (as its timer does) until the condition holds.
bool until(InstrumentView& view, const std::function<bool()>& condition) {
    return GuiTest::processEventsUntil([&] {
        view.refresh();
        return condition();
    });
}

/// A position "x, y, z" in the reference's frame (not a note).
bool isPosition(const QString& text) {
    return text.split(QStringLiteral(", ")).size() == 3 && !text.contains(QLatin1Char('('));
}

} // namespace

TEST(ReferenceWorkspace, TheReferenceAndNamesChosenInTheInstrumentViewAreKeptByTheWorkspace) {
    GuiTest::ensureApplication();
    TrackingStreamTest::SceneGuard scene(GuiTest::dataFile("two-markers.json"));
    QTemporaryDir folder;
    const std::string first = folder.filePath("first.kws").toStdString();
    const std::string saved = folder.filePath("saved.kws").toStdString();
    std::ofstream(first)
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<properties name=\"Workspace\">\n"
           "<properties name=\"Algorithms\"><properties name=\"Atracsys.SpryTrackStream\">\n"
           "<param name=\"open\" type=\"bool\">true</param>\n"
           "<param name=\"start\" type=\"bool\">true</param>\n"
           "<properties name=\"TrackingTargets\">\n"
           "<properties name=\"geometry1000\"><param name=\"Path\" type=\"string\">" KESTRION_SOURCE_DIR
           "/data/markers/geometry1000.ini</param></properties>\n"
           "<properties name=\"geometry1001\"><param name=\"Path\" type=\"string\">" KESTRION_SOURCE_DIR
           "/data/markers/geometry1001.ini</param></properties>\n"
           "</properties></properties></properties></properties>\n";
    FactoryRegistry registry;
    registry.addAlgorithmFactory(std::make_unique<AtracsysAlgorithmFactory>(), "test");

    {
        Workspace workspace;
        ASSERT_TRUE(workspace.load(first, registry).ok());
        SpryTrack::AtracsysTrackingStream* stream = streamOf(workspace);
        ASSERT_TRUE(stream);
        InstrumentView view;
        view.setStream(stream);
        ASSERT_TRUE(until(view, [&] { return view.model()->isTracked(0) && view.model()->isTracked(1); }));
        ASSERT_FALSE(view.renameInstrument("atracsys-1000", "Stylus"));
        std::unique_ptr<QMenu> menu = view.contextMenu(1);
        ASSERT_TRUE(menu->findChild<QAction*>("useAsReference"));
        menu->findChild<QAction*>("useAsReference")->trigger();
        EXPECT_EQ(stream->referenceInstrument(), "atracsys-1001");
        // The camera's frames now carry the stylus in the reference's frame.
        EXPECT_TRUE(until(view, [&] { return isPosition(cell(view, 0, InstrumentTableModel::InReference)); }))
            << cell(view, 0, InstrumentTableModel::InReference).toStdString();
        EXPECT_EQ(cell(view, 1, InstrumentTableModel::InReference), "(reference)");
        ASSERT_TRUE(workspace.save(saved));
        view.setStream(nullptr);
    } // the camera's stream closes with its workspace: one stream at a time
    const std::string text = readFile(saved);
    EXPECT_NE(text.find(">atracsys-1000=Stylus<"), std::string::npos) << text;
    EXPECT_NE(text.find(">atracsys-1001<"), std::string::npos) << text;

    {
        Workspace workspace;
        ASSERT_TRUE(workspace.load(saved, registry).ok());
        SpryTrack::AtracsysTrackingStream* stream = streamOf(workspace);
        ASSERT_TRUE(stream && stream->instrumentNames());
        EXPECT_EQ(stream->referenceInstrument(), "atracsys-1001");
        EXPECT_EQ(stream->instrumentNames()->displayName("atracsys-1000"), "Stylus");
        // A saved workspace opens the camera; its panel starts tracking (there is none here).
        ASSERT_TRUE(stream->isInitialized() && stream->start());
        InstrumentView view;
        view.setStream(stream);
        EXPECT_TRUE(
            until(view, [&] { return isPosition(cell(view, 0, InstrumentTableModel::InReference)); }));
        EXPECT_EQ(cell(view, 0, InstrumentTableModel::Name), "Stylus");
        EXPECT_TRUE(view.contextMenu(1)->findChild<QAction*>("useAsReference")->isChecked());

        // No reference: the workspace no longer names one.
        view.contextMenu(1)->findChild<QAction*>("noReference")->trigger();
        ASSERT_TRUE(workspace.save(saved));
        view.setStream(nullptr);
    }
    EXPECT_EQ(readFile(saved).find("referenceInstrument"), std::string::npos);
    EXPECT_NE(readFile(saved).find(">atracsys-1000=Stylus<"), std::string::npos);
}
