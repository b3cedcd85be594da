// The tracking views in a reference's frame: the instrument table marks the reference and gives
// each tool's position in its frame only in frames where both are tracked, the user chooses the
// reference in the table's context menu, and the 3D view draws the scene in the reference's frame
// or says that the reference is not seen.

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
#include <QFont>
#include <QMenu>
#include <QTableView>

#include <gtest/gtest.h>

using namespace Kestrion;

namespace {

const std::string Stylus = "atracsys-1000", Reference = "atracsys-1001";

TrackingInstrument instrument(const std::string& id, double quality, const Eigen::Matrix4d& pose) {
    TrackingInstrument result(TrackerID(id, id), true);
    result.quality = quality;
    result.matrix = pose;
    return result;
}

Eigen::Matrix4d pose(const Eigen::Vector3d& translation, double turnAboutZDeg = 0.0) {
    Eigen::Matrix4d m = Eigen::Matrix4d::Identity();
    m.block<3, 3>(0, 0) =
        Eigen::AngleAxisd(turnAboutZDeg * M_PI / 180.0, Eigen::Vector3d::UnitZ()).toRotationMatrix();
    m.block<3, 1>(0, 3) = translation;
    return m;
}

/// A frame of the stylus at (10, 20, 800) with its tip 100 mm towards the camera, and the reference
/// at (0, 0, 1000) turned by 90 degrees about z: the stylus is at (20, -10, -200) in its frame.
/// Each is tracked or not; `relativeTo` is the reference the host computed the frame for.
std::shared_ptr<TrackingStreamData> frame(bool stylusTracked, bool referenceTracked,
                                          const std::string& relativeTo = Reference) {
    auto data = std::make_shared<TrackingStreamData>(
        nullptr,
        std::vector<TrackingInstrument>{
            instrument(Stylus, stylusTracked ? 0.95 : 0.0, pose({10, 20, 800})),
            instrument(Reference, referenceTracked ? 0.9 : 0.0, pose({0, 0, 1000}, 90))},
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

QString cell(const InstrumentTableModel& model, int row, int column, int role = Qt::DisplayRole) {
    return model.data(model.index(row, column), role).toString();
}

/// A running tracking stream whose frames the test completes (the host's additions) and emits;
/// its frames stay current however slowly the test runs.
class FedStream : public TrackingStream {
public:
    FedStream()
        : TrackingStream("fed") {
        health().setSilenceThreshold(std::chrono::hours(1));
        EXPECT_TRUE(open() && start());
    }
    ~FedStream() override { close(); }
    std::vector<TrackingInstrument> instruments() const override { return {}; }
    void feed(bool stylusTracked, bool referenceTracked) {
        auto data = frame(stylusTracked, referenceTracked, "");
        completeFrame(*data);
        emitStreamData(data);
    }
};

QAction* action(QMenu& menu, const char* name) {
    return menu.findChild<QAction*>(QString::fromLatin1(name));
}

} // namespace

TEST(InstrumentTableModel, GivesPositionsInTheReferencesFrameOnlyForFramesWhereBothAreTracked) {
    InstrumentTableModel model;
    model.setReference(Reference);
    model.showFrame(*frame(true, true), 1000);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::InReference), "20.00, -10.00, -200.00");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Tip), "10.00, 20.00, 700.00");
    EXPECT_EQ(cell(model, 1, InstrumentTableModel::InReference), "(reference)");
    EXPECT_TRUE(model.data(model.index(1, InstrumentTableModel::Name), Qt::FontRole).value<QFont>().bold());
    EXPECT_FALSE(model.data(model.index(0, InstrumentTableModel::Name), Qt::FontRole).value<QFont>().bold());
    EXPECT_TRUE(model.anyTip());

    // The reference hidden: said on every other row, after the tool's own reason; no position.
    auto hidden = frame(true, false);
    auto status = std::make_shared<InstrumentStatusData>();
    status->entries().push_back(
        {Stylus, InstrumentStatusData::State::Tracked, "registration error 0.07 mm", 0.07, 4, 4});
    hidden->addComponent(status);
    model.showFrame(*hidden, 1100);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::InReference), "reference not seen");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Reason), "registration error 0.07 mm; reference not seen");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Status), "tracked");
    EXPECT_EQ(cell(model, 1, InstrumentTableModel::InReference), "(reference)");
    EXPECT_EQ(cell(model, 1, InstrumentTableModel::Reason), "") << "not on the reference's own row";

    // The tool hidden: no position carried over from an earlier frame; its last tip stays, greyed.
    model.showFrame(*frame(false, true), 1200);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::InReference), "");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Reason), "");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Tip), "10.00, 20.00, 700.00");
    EXPECT_EQ(
        model.data(model.index(0, InstrumentTableModel::Tip), Qt::ForegroundRole).value<QBrush>().color(),
        QColor(128, 128, 128));

    // Poses computed for another reference are not this reference's; nor is a past frame current.
    model.showFrame(*frame(true, true, Stylus), 1300);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::InReference), "");
    model.showFrame(*frame(true, true), 1400);
    model.setCurrent(false, "camera not delivering");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::InReference), "");
    model.setCurrent(true);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::InReference), "20.00, -10.00, -200.00");

    // Another reference chosen: nothing of the old one's values remains.
    model.setReference(Stylus);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::InReference), "(reference)");
    EXPECT_EQ(cell(model, 1, InstrumentTableModel::InReference), "");
    model.setReference("");
    for (int row = 0; row < 2; ++row)
        EXPECT_EQ(cell(model, row, InstrumentTableModel::InReference), "") << row;
}

TEST(InstrumentView, ChoosesTheReferenceInItsContextMenuAndShowsItsColumnWhileOneIsSet) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    FedStream stream;
    InstrumentView view;
    view.setStream(&stream);
    stream.feed(true, true);
    view.refresh();
    ASSERT_EQ(view.model()->rowCount(), 2);
    EXPECT_TRUE(view.table()->isColumnHidden(InstrumentTableModel::InReference));
    EXPECT_FALSE(view.table()->isColumnHidden(InstrumentTableModel::Tip)) << "the stylus has a tip";

    std::unique_ptr<QMenu> menu = view.contextMenu(1);
    ASSERT_TRUE(action(*menu, "useAsReference") && action(*menu, "noReference"));
    EXPECT_EQ(action(*menu, "useAsReference")->text(), "Use atracsys-1001 as the reference");
    EXPECT_FALSE(action(*menu, "noReference")->isEnabled()) << "no reference yet";
    action(*menu, "useAsReference")->trigger();
    EXPECT_EQ(stream.referenceInstrument(), Reference);
    EXPECT_TRUE(
        capture->contains(Log::Info, "InstrumentView",
                          "Reference instrument: atracsys-1001; the others are also given in its frame"));
    EXPECT_FALSE(view.table()->isColumnHidden(InstrumentTableModel::InReference));
    EXPECT_EQ(cell(*view.model(), 1, InstrumentTableModel::InReference), "(reference)") << "marked at once";

    // The stream's next frames carry the relative poses; a hidden reference is said.
    stream.feed(true, true);
    view.refresh();
    EXPECT_EQ(cell(*view.model(), 0, InstrumentTableModel::InReference), "20.00, -10.00, -200.00");
    stream.feed(true, false);
    view.refresh();
    EXPECT_EQ(cell(*view.model(), 0, InstrumentTableModel::InReference), "reference not seen");

    menu = view.contextMenu(1);
    EXPECT_TRUE(action(*menu, "useAsReference")->isChecked());
    ASSERT_TRUE(action(*menu, "noReference")->isEnabled());
    action(*menu, "noReference")->trigger();
    EXPECT_EQ(stream.referenceInstrument(), "");
    EXPECT_TRUE(view.table()->isColumnHidden(InstrumentTableModel::InReference));
    EXPECT_TRUE(
        capture->contains(Log::Info, "InstrumentView",
                          "No reference instrument: the instruments are given in camera coordinates only"));
    EXPECT_FALSE(action(*view.contextMenu(-1), "useAsReference")) << "below the rows: no instrument to use";
    view.setStream(nullptr);
}

TEST(WorkingVolumeScene, DrawsInTheReferencesFrameOnlyWhileTheReferenceIsSeen) {
    WorkingVolumeScene scene;
    scene.setGeometry(Stylus, {{0, 0, 0}, {30, 0, 0}});
    scene.setGeometry(Reference, {{0, 0, 0}, {0, 40, 0}});
    scene.setReferenceFrame(Reference);
    scene.build(frame(true, true).get());
    EXPECT_TRUE(scene.referenceSeen());
    EXPECT_EQ(scene.instrumentsDrawn(), 2u);
    std::vector<Eigen::Vector3f> markers, tips;
    for (const auto& p : scene.points())
        (p.colour == WorkingVolumeScene::TipColour ? tips : markers).push_back(p.position);
    // The stylus's (30, 0, 0) turned by -90 degrees about z lies along -y of the reference.
    const std::vector<Eigen::Vector3f> expected = {{0, 0, 0}, {0, 40, 0}, {20, -10, -200}, {20, -40, -200}};
    ASSERT_EQ(markers.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_LT((markers[i] - expected[i]).norm(), 1e-4f) << i << ": " << markers[i].transpose();
    ASSERT_EQ(tips.size(), 1u);
    EXPECT_LT((tips[0] - Eigen::Vector3f(20, -10, -300)).norm(), 1e-4f);
    // The camera where the reference sees it: its box's corner (-100, -25, -50) in its frame.
    ASSERT_EQ(scene.lines().size(), 24u + 12u + 2u) << "the camera's box, two axes triads, one tip line";
    EXPECT_EQ(scene.lines()[0].colour, WorkingVolumeScene::CameraColour);
    EXPECT_LT((scene.lines()[0].position - Eigen::Vector3f(-25, 100, -1050)).norm(), 1e-3f)
        << scene.lines()[0].position.transpose();

    // The reference hidden, or a frame of a stream that no longer delivers: nothing can be placed.
    scene.build(frame(true, false).get(), true);
    EXPECT_FALSE(scene.referenceSeen());
    EXPECT_EQ(scene.instrumentsDrawn() + scene.instrumentsLost(), 0u);
    EXPECT_TRUE(scene.points().empty() && scene.lines().empty());
    scene.build(frame(true, true).get(), false);
    EXPECT_FALSE(scene.referenceSeen());
    EXPECT_TRUE(scene.points().empty() && scene.lines().empty());
    scene.setReferenceFrame("");
    scene.build(frame(true, false).get());
    EXPECT_TRUE(scene.referenceSeen());
    EXPECT_EQ(scene.instrumentsDrawn(), 1u) << "in camera coordinates, the stylus alone";
}

TEST(WorkingVolumeView, DrawsInTheReferencesFrameWhenAskedAndSaysWhenTheReferenceIsNotSeen) {
    TestSupport::guiApplication();
    FedStream stream;
    WorkingVolumeView view;
    view.setStream(&stream);
    stream.feed(true, true);
    view.refresh();
    EXPECT_FALSE(view.referenceFrameToggle()->isEnabled()) << "no reference to draw in";

    stream.setReferenceInstrument(Reference);
    view.refresh();
    ASSERT_TRUE(view.referenceFrameToggle()->isEnabled());
    view.referenceFrameToggle()->setChecked(true);
    EXPECT_TRUE(view.inReferenceFrame());
    EXPECT_EQ(view.scene().referenceFrame(), Reference);
    EXPECT_EQ(view.noteText(), "Reference not seen: no instrument can be drawn in its frame")
        << "the frame drawn was made before the reference was chosen";
    stream.feed(true, true);
    view.refresh();
    EXPECT_EQ(view.noteText(), "");
    EXPECT_EQ(view.scene().instrumentsDrawn(), 2u);
    EXPECT_EQ(view.centre(), Eigen::Vector3d::Zero()) << "the view turns about the reference";
    stream.feed(true, false);
    view.refresh();
    EXPECT_EQ(view.noteText(), "Reference not seen: no instrument can be drawn in its frame");
    EXPECT_EQ(view.scene().instrumentsDrawn(), 0u);

    // The reference dropped (in the instrument view): camera coordinates at the next refresh.
    stream.setReferenceInstrument("");
    view.refresh();
    EXPECT_FALSE(view.referenceFrameToggle()->isEnabled());
    EXPECT_EQ(view.scene().referenceFrame(), "");
    EXPECT_EQ(view.noteText(), "");
    EXPECT_EQ(view.scene().instrumentsDrawn(), 1u);
    view.setStream(nullptr);
}
