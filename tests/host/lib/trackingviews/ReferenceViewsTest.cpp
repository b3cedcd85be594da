// The tracking views in a reference's frame: the instrument table marks the reference and gives
// each tool's position in its frame only in frames where both are tracked, the user chooses the
// reference in the table's context menu, and the 3D view draws in the reference's frame or says
// that the reference is not seen.

#include "host/core/Log.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/lib/trackingviews/WorkingVolumeScene.h"
#include "host/lib/trackingviews/WorkingVolumeView.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/ReferencePoseData.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <Eigen/Geometry>

#include <QAction>
#include <QCheckBox>
#include <QMenu>
#include <QTableView>

#include <gtest/gtest.h>

using namespace Kestrion;
using Model = InstrumentTableModel;

namespace {

const std::string Stylus = "atracsys-1000", Reference = "atracsys-1001";

TrackingInstrument instrument(const std::string& id, bool tracked, const Eigen::Vector3d& at,
                              double turnDeg) {
    TrackingInstrument result(TrackerID(id, id), true);
    result.quality = tracked ? 0.9 : 0.0;
    result.matrix.block<3, 3>(0, 0) =
        Eigen::AngleAxisd(turnDeg * M_PI / 180, Eigen::Vector3d::UnitZ()).matrix();
    result.matrix.block<3, 1>(0, 3) = at;
    return result;
}

/// The stylus at (10, 20, 800), its tip 100 mm nearer the camera, and the reference at (0, 0, 1000)
/// turned by 90 degrees about z: in the reference's frame the stylus is at (20, -10, -200). The
/// host's relative poses are computed for `relativeTo` (none: left to TrackingStream::completeFrame).
std::shared_ptr<TrackingStreamData> frame(bool stylusTracked, bool referenceTracked,
                                          const std::string& relativeTo = Reference) {
    auto data = std::make_shared<TrackingStreamData>(
        nullptr,
        std::vector<TrackingInstrument>{instrument(Stylus, stylusTracked, {10, 20, 800}, 0),
                                        instrument(Reference, referenceTracked, {0, 0, 1000}, 90)},
        1000, 1000);
    auto tips = std::make_shared<InstrumentTipData>();
    if (stylusTracked)
        tips->entries().push_back({Stylus, {0, 0, -100}, {10, 20, 700}});
    data->addComponent(tips);
    if (!relativeTo.empty())
        data->addComponent(
            std::make_shared<const ReferencePoseData>(ReferencePoseData::compute(*data, relativeTo)));
    return data;
}

/// A row's "in reference | tip | reason" cells.
std::string cells(const Model& model, int row) {
    const auto text = [&](int column) {
        return model.data(model.index(row, column)).toString().toStdString();
    };
    return text(Model::InReference) + " | " + text(Model::Tip) + " | " + text(Model::Reason);
}

/// A running tracking stream whose frames the test completes with the host's additions and emits;
/// they stay current however slowly the test runs.
class ReferenceFedStream : public TrackingStream {
public:
    ReferenceFedStream()
        : TrackingStream("fed") {
        health().setSilenceThreshold(std::chrono::hours(1));
        EXPECT_TRUE(open() && start());
    }
    ~ReferenceFedStream() override { close(); }
    std::vector<TrackingInstrument> instruments() const override { return {}; }
    void feed(bool stylusTracked, bool referenceTracked) {
        auto data = frame(stylusTracked, referenceTracked, "");
        completeFrame(*data);
        emitStreamData(data);
    }
};

} // namespace

TEST(InstrumentTableModel, GivesPositionsInTheReferencesFrameOnlyForFramesWhereBothAreTracked) {
    Model model;
    model.setReference(Reference);
    model.showFrame(*frame(true, true), 1000);
    EXPECT_EQ(cells(model, 0), "20.0, -10.0, -200.0 | 10.0, 20.0, 700.0 | ");
    EXPECT_EQ(cells(model, 1), "(reference) |  | ");
    EXPECT_TRUE(model.data(model.index(1, Model::Name), Qt::FontRole).value<QFont>().bold());

    // The reference hidden: said on the other rows, after the tool's own reason.
    auto hidden = frame(true, false);
    auto status = std::make_shared<InstrumentStatusData>();
    status->entries().push_back(
        {Stylus, InstrumentStatusData::State::Tracked, "registration error 0.07 mm", 0.07, 4, 4});
    hidden->addComponent(status);
    model.showFrame(*hidden, 1100);
    EXPECT_EQ(cells(model, 0),
              "reference not seen | 10.0, 20.0, 700.0 | registration error 0.07 mm; reference not seen");
    EXPECT_EQ(cells(model, 1), "(reference) |  | ");

    // The tool hidden: no position of an earlier frame; the last tip stays (greyed).
    model.showFrame(*frame(false, true), 1200);
    EXPECT_EQ(cells(model, 0), " | 10.0, 20.0, 700.0 | ");
    // Poses computed for another reference, and a frame that is no longer current, give none.
    model.showFrame(*frame(true, true, Stylus), 1300);
    EXPECT_EQ(cells(model, 0), " | 10.0, 20.0, 700.0 | ");
    model.showFrame(*frame(true, true), 1400);
    model.setCurrent(false, "camera not delivering");
    EXPECT_EQ(cells(model, 0), " | 10.0, 20.0, 700.0 | camera not delivering");
    model.setCurrent(true);
    model.setReference(Stylus); // another reference: nothing of the old one's values remains
    EXPECT_EQ(cells(model, 0), "(reference) | 10.0, 20.0, 700.0 | ");
    EXPECT_EQ(cells(model, 1), " |  | ");
}

TEST(WorkingVolumeScene, DrawsInTheReferencesFrameOnlyWhileTheReferenceIsSeen) {
    WorkingVolumeScene scene;
    scene.setGeometry(Stylus, {{0, 0, 0}, {30, 0, 0}});
    scene.setReferenceFrame(Reference);
    scene.build(frame(true, true).get());
    ASSERT_TRUE(scene.referenceSeen());
    std::vector<Eigen::Vector3f> points;
    for (const auto& p : scene.points())
        points.push_back(p.position);
    // The reference at the origin; the stylus's (30, 0, 0) turned by -90 degrees; its tip.
    const std::vector<Eigen::Vector3f> expected = {
        {0, 0, 0}, {20, -10, -200}, {20, -40, -200}, {20, -10, -300}};
    ASSERT_EQ(points.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_LT((points[i] - expected[i]).norm(), 1e-4f) << i << ": " << points[i].transpose();
    // The camera where the reference sees it: its box's corner (-100, -25, -50).
    EXPECT_LT((scene.lines()[0].position - Eigen::Vector3f(-25, 100, -1050)).norm(), 1e-3f);

    // The reference hidden, or the frame no longer current: nothing can be placed.
    for (bool current : {true, false}) {
        scene.build(frame(true, !current).get(), current);
        EXPECT_FALSE(scene.referenceSeen());
        EXPECT_TRUE(scene.points().empty() && scene.lines().empty());
    }
}

TEST(TrackingViews, FollowTheReferenceChosenInTheInstrumentViewsContextMenu) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    ReferenceFedStream stream;
    InstrumentView view;
    WorkingVolumeView volume;
    view.setStream(&stream);
    volume.setStream(&stream);
    const auto show = [&](bool referenceTracked) {
        stream.feed(true, referenceTracked);
        view.refresh();
        volume.refresh();
    };
    std::unique_ptr<QMenu> menu; // the last menu asked for, alive while its action is used
    const auto action = [&](const char* name) {
        menu = view.contextMenu(1);
        return menu->findChild<QAction*>(name);
    };
    show(true);
    EXPECT_TRUE(view.table()->isColumnHidden(Model::InReference));
    EXPECT_FALSE(action("noReference")->isEnabled() || volume.referenceFrameToggle()->isEnabled());

    action("useAsReference")->trigger();
    EXPECT_EQ(stream.referenceInstrument(), Reference);
    EXPECT_TRUE(
        capture->contains(Log::Info, "InstrumentView",
                          "Reference instrument: atracsys-1001; the others are also given in its frame"));
    EXPECT_FALSE(view.table()->isColumnHidden(Model::InReference));
    EXPECT_EQ(cells(*view.model(), 1), "(reference) |  | ") << "marked at once";
    show(true); // the stream's next frames carry the relative poses
    EXPECT_EQ(cells(*view.model(), 0), "20.0, -10.0, -200.0 | 10.0, 20.0, 700.0 | ");
    EXPECT_TRUE(action("useAsReference")->isChecked());
    volume.referenceFrameToggle()->setChecked(true);
    EXPECT_EQ(volume.scene().referenceFrame(), Reference);
    EXPECT_EQ(volume.scene().instrumentsDrawn(), 2u);
    EXPECT_EQ(volume.noteText(), "");
    show(false);
    EXPECT_EQ(volume.noteText(), "Reference not seen: no instrument can be drawn in its frame");
    EXPECT_EQ(volume.scene().instrumentsDrawn(), 0u);

    action("noReference")->trigger(); // camera coordinates again, in both views
    volume.refresh();
    EXPECT_EQ(stream.referenceInstrument(), "");
    EXPECT_TRUE(view.table()->isColumnHidden(Model::InReference));
    EXPECT_FALSE(volume.referenceFrameToggle()->isEnabled());
    EXPECT_EQ(volume.noteText(), "");
    EXPECT_EQ(volume.scene().instrumentsDrawn(), 1u);
    EXPECT_FALSE(view.contextMenu(-1)->findChild<QAction*>("useAsReference")) << "no row, no instrument";
    view.setStream(nullptr);
    volume.setStream(nullptr);
}
