// The instrument table of any tracking stream: the model over frames with and without the
// instrument status, and the view following a stream that the test feeds from another thread.

#include "host/lib/trackingviews/InstrumentView.h"
#include "host/core/Log.h"
#include "host/core/Time.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QSignalSpy>
#include <QTableView>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <set>
#include <thread>

using namespace Kestrion;

namespace {

TrackingInstrument instrument(const std::string& id, const std::string& name, double quality,
                              Eigen::Vector3d position = Eigen::Vector3d::Zero(), bool active = true) {
    TrackingInstrument result(TrackerID(id, name), active);
    result.quality = quality;
    result.matrix.block<3, 1>(0, 3) = position;
    return result;
}

std::shared_ptr<TrackingStreamData> frame(std::vector<TrackingInstrument> instruments,
                                          std::uint64_t arrivalMs) {
    return std::make_shared<TrackingStreamData>(nullptr, std::move(instruments), arrivalMs, arrivalMs);
}

QString cell(const InstrumentTableModel& model, int row, int column, int role = Qt::DisplayRole) {
    return model.data(model.index(row, column), role).toString();
}

/// A tracking stream whose frames the test emits.
class FedStream : public TrackingStream {
public:
    FedStream()
        : TrackingStream("fed") {}
    std::vector<TrackingInstrument> instruments() const override { return {}; }
    void feed(std::shared_ptr<const StreamData> data) { emitStreamData(std::move(data)); }
};

} // namespace

TEST(InstrumentTableModel, ShowsTrackedStateFromQualityAndKeepsTheLastTrackedPosition) {
    InstrumentTableModel model;
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    model.showFrame(*frame({instrument("atracsys-1000", "pointer", 0.95, {1.5, -2.25, 800}),
                            instrument("atracsys-1001", "reference", 0.0),
                            instrument("atracsys-1002", "spare", 0.0, {}, false)},
                           10000),
                    10000);
    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_EQ(resets.count(), 1);
    const std::vector<std::vector<QString>> expected = {
        {"atracsys-1000", "atracsys-1000", "tracked", "0.950", "1.50", "-2.25", "800.00", "", "", "", "0.0 s",
         ""},
        {"atracsys-1001", "atracsys-1001", "not tracked", "0.000", "", "", "", "", "", "", "never", ""},
        {"atracsys-1002", "atracsys-1002", "inactive", "0.000", "", "", "", "", "", "", "never", ""}};
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < InstrumentTableModel::ColumnCount; ++column)
            EXPECT_EQ(cell(model, row, column), expected[row][column]) << row << "," << column;
    EXPECT_TRUE(model.isTracked(0));
    EXPECT_FALSE(model.isTracked(1));

    // Lost 2.5 s later: the same rows change in place, the last position stays, greyed.
    model.showFrame(
        *frame({instrument("atracsys-1000", "pointer", 0.0), instrument("atracsys-1001", "reference", 0.0),
                instrument("atracsys-1002", "spare", 0.0, {}, false)},
               12000),
        12500);
    EXPECT_EQ(resets.count(), 1);
    EXPECT_EQ(changes.count(), 1);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Status), "not tracked");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Z), "800.00");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::LastSeen), "2.5 s");
    EXPECT_EQ(model.data(model.index(0, InstrumentTableModel::Z), Qt::ForegroundRole).value<QBrush>().color(),
              QColor(128, 128, 128));
    model.showTime(14000);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::LastSeen), "4.0 s");

    // Another set of instruments resets the table.
    model.showFrame(*frame({instrument("atracsys-1000", "pointer", 0.0)}, 15000), 15000);
    EXPECT_EQ(resets.count(), 2);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::X), "1.50") << "a known id keeps its history";
}

TEST(InstrumentTableModel, ShowsNothingTrackedWhileTheFramesAreNotCurrentAndNamesEveryRowAlike) {
    auto data = frame({instrument("atracsys-1000", "newtool.ini", 0.993, {5, 6, 700}),
                       instrument("atracsys-1001", "geometry1001", 0.97, {0, 0, 900})},
                      20000);
    auto names = std::make_shared<InstrumentNames>();
    ASSERT_FALSE(names->setName("atracsys-1000", "Stylus"));
    data->addComponent(names);
    auto status = std::make_shared<InstrumentStatusData>();
    status->entries().push_back(
        {"atracsys-1000", InstrumentStatusData::State::Tracked, "registration error 0.07 mm", 0.07, 4, 4});
    data->addComponent(status);
    InstrumentTableModel model;
    model.showFrame(*data, 20000);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Name), "Stylus");
    EXPECT_EQ(cell(model, 1, InstrumentTableModel::Name), "atracsys-1001") << "the id, not a file's name";
    EXPECT_TRUE(model.isTracked(0) && model.isTracked(1));

    // The camera stops delivering: the same frame is now the past.
    QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    model.setCurrent(false, "camera not delivering");
    model.showTime(46900);
    EXPECT_GE(changes.count(), 1);
    for (int row = 0; row < 2; ++row) {
        EXPECT_FALSE(model.isTracked(row)) << row;
        EXPECT_EQ(cell(model, row, InstrumentTableModel::Status), "not tracked");
        EXPECT_EQ(cell(model, row, InstrumentTableModel::Reason), "camera not delivering");
        EXPECT_EQ(cell(model, row, InstrumentTableModel::LastSeen), "26.9 s");
        for (int column : {InstrumentTableModel::Quality, InstrumentTableModel::Z})
            EXPECT_EQ(model.data(model.index(row, column), Qt::ForegroundRole).value<QBrush>().color(),
                      QColor(128, 128, 128))
                << row << "," << column;
        EXPECT_EQ(model.data(model.index(row, 0), Qt::BackgroundRole),
                  model.data(model.index(0, 0), Qt::BackgroundRole));
    }
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Quality), "0.993") << "the last value, greyed";
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::RegistrationError), "0.070");

    // Delivering again, the frame's own status shows.
    model.setCurrent(true);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Reason), "registration error 0.07 mm");
    EXPECT_TRUE(model.isTracked(0));

    // A frame whose status says not tracked is not tracked, whatever its quality.
    auto lost =
        frame({instrument("atracsys-1000", "newtool.ini", 0.9), instrument("atracsys-1001", "", 0.9)}, 21000);
    auto lostStatus = std::make_shared<InstrumentStatusData>();
    lostStatus->entries().push_back({"atracsys-1000", InstrumentStatusData::State::Unmatched, "", 0.0, 0, 4});
    lost->addComponent(lostStatus);
    model.showFrame(*lost, 21000);
    EXPECT_FALSE(model.isTracked(0));
    EXPECT_TRUE(model.isTracked(1));
}

TEST(InstrumentTableModel, TakesStatusReasonAndRegistrationErrorFromTheStatusComponent) {
    auto data = frame({instrument("atracsys-1000", "pointer", 0.9, {10, 20, 900}),
                       instrument("atracsys-1001", "reference", 0.8, {0, 0, 1000}),
                       instrument("atracsys-1002", "probe", 0.0)},
                      1000);
    auto status = std::make_shared<InstrumentStatusData>();
    status->entries().push_back({"atracsys-1000", InstrumentStatusData::State::Tracked, "", 0.1234, 4, 4});
    status->entries().push_back({"atracsys-1001", InstrumentStatusData::State::TrackedHighError,
                                 "registration error 0.62 mm above 0.50 mm", 0.62, 4, 4});
    status->entries().push_back({"atracsys-1002", InstrumentStatusData::State::PartlySeen,
                                 "fiducials 1, 2 of 4 found", std::numeric_limits<double>::quiet_NaN(), 2,
                                 4});
    data->addComponent(status);
    InstrumentTableModel model;
    model.showFrame(*data, 1000);
    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::Status), "tracked");
    EXPECT_EQ(cell(model, 0, InstrumentTableModel::RegistrationError), "0.123");
    EXPECT_EQ(cell(model, 1, InstrumentTableModel::Status), "high error");
    EXPECT_EQ(cell(model, 1, InstrumentTableModel::Reason), "registration error 0.62 mm above 0.50 mm");
    EXPECT_EQ(cell(model, 2, InstrumentTableModel::Status), "partly seen");
    EXPECT_EQ(cell(model, 2, InstrumentTableModel::Reason), "fiducials 1, 2 of 4 found");
    EXPECT_EQ(cell(model, 2, InstrumentTableModel::RegistrationError), "");
    // Three colours: tracked, high error, not tracked.
    std::set<QRgb> colours;
    for (int row = 0; row < 3; ++row)
        colours.insert(model.data(model.index(row, 0), Qt::BackgroundRole).value<QBrush>().color().rgb());
    EXPECT_EQ(colours.size(), 3u);
    EXPECT_TRUE(model.isTracked(1));
    EXPECT_FALSE(model.isTracked(2));
}

TEST(InstrumentView, FollowsAStreamAsksForTheStatusWhileShownAndLetsGo) {
    TestSupport::guiApplication();
    FedStream stream;
    InstrumentView view;
    EXPECT_NE(view.placeholderText().indexOf("No tracking stream"), -1)
        << view.placeholderText().toStdString();
    view.setStream(&stream);
    EXPECT_FALSE(stream.instrumentStatusRequested()) << "hidden views do not ask";
    EXPECT_NE(view.placeholderText().indexOf("Waiting for the first frame"), -1);
    view.show();
    EXPECT_TRUE(stream.instrumentStatusRequested());

    // Frames from another thread while the view refreshes: it shows the newest.
    std::atomic<bool> done{false};
    std::thread worker([&stream, &done]() {
        for (std::uint64_t i = 1; i <= 500; ++i)
            stream.feed(frame({instrument("atracsys-1000", "pointer", 0.5, {double(i), 0, 700})}, i));
        done = true;
    });
    while (!done)
        view.refresh();
    worker.join();
    view.refresh();
    ASSERT_EQ(view.model()->rowCount(), 1);
    EXPECT_EQ(cell(*view.model(), 0, InstrumentTableModel::X), "500.00");
    EXPECT_EQ(view.placeholderText(), "");
    EXPECT_TRUE(view.table()->isVisibleTo(&view));

    stream.feed(frame({}, 60));
    view.refresh();
    EXPECT_NE(view.placeholderText().indexOf("no instruments"), -1);

    // The stream's state: named while not running, with the reason once it stopped.
    EXPECT_EQ(view.stateText(), "The stream \"fed\" is closed.");
    ASSERT_TRUE(stream.open() && stream.start());
    view.refresh();
    EXPECT_EQ(view.stateText(), "");
    {
        TestSupport::LogCapture capture;
        Log::log(Log::Error, "Test", "Marker overflow. Please increase cstMarkersCount.", __FILE__, __LINE__);
        ASSERT_TRUE(stream.close());
    }
    view.refresh();
    EXPECT_EQ(view.stateText(),
              "The stream \"fed\" stopped; it is closed. Last error: Marker overflow. Please "
              "increase cstMarkersCount.");

    view.hide();
    EXPECT_FALSE(stream.instrumentStatusRequested());
    view.show();
    view.setStream(nullptr);
    EXPECT_FALSE(stream.instrumentStatusRequested()) << "released when it lets go of the stream";
    stream.feed(frame({instrument("x", "x", 1.0)}, 70)); // no longer connected
    view.refresh();
    EXPECT_EQ(view.model()->rowCount(), 0);
}

TEST(InstrumentView, SaysWhyNothingIsTrackedWhileTheStreamDoesNotDeliver) {
    TestSupport::guiApplication();
    FedStream stream;
    stream.health().setSilenceThreshold(std::chrono::milliseconds(1));
    InstrumentView view;
    view.show();
    view.setStream(&stream);
    ASSERT_TRUE(stream.open() && stream.start());
    const auto feedAndShow = [&] {
        stream.feed(
            frame({instrument("atracsys-1000", "pointer", 0.9, {1, 2, 700})}, Time::utcMilliseconds()));
        view.refresh();
    };
    feedAndShow();
    ASSERT_TRUE(view.model()->isTracked(0)) << view.stateText().toStdString();
    EXPECT_EQ(view.stateText(), "");

    // No data for longer than the silence threshold: the camera is not delivering.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    stream.health().noteFailure("Device 0x1000 was disconnected");
    view.refresh();
    EXPECT_FALSE(view.model()->isTracked(0));
    EXPECT_EQ(cell(*view.model(), 0, InstrumentTableModel::Reason), "camera not delivering");
    EXPECT_TRUE(view.stateText().startsWith("The camera of \"fed\" is not delivering: no data for "))
        << view.stateText().toStdString();
    EXPECT_TRUE(view.stateText().endsWith(" Last error: Device 0x1000 was disconnected"))
        << view.stateText().toStdString();

    feedAndShow();
    EXPECT_TRUE(view.model()->isTracked(0)) << "delivering again";
    EXPECT_EQ(view.stateText(), "");

    // Stopped by the user, then started again.
    ASSERT_TRUE(stream.stop());
    view.refresh();
    EXPECT_FALSE(view.model()->isTracked(0));
    EXPECT_EQ(cell(*view.model(), 0, InstrumentTableModel::Reason), "stream open");
    EXPECT_EQ(view.stateText(), "The stream \"fed\" stopped; it is open.");
    ASSERT_TRUE(stream.start());
    feedAndShow();
    ASSERT_TRUE(view.model()->isTracked(0));

    // A source that has no more data (a replayed recording at its end).
    stream.health().noteEnded("the recording ended after 20 frames");
    view.refresh();
    EXPECT_FALSE(view.model()->isTracked(0));
    EXPECT_EQ(cell(*view.model(), 0, InstrumentTableModel::Reason), "data ended");
    EXPECT_TRUE(
        view.stateText().startsWith("The data of \"fed\" has ended: the recording ended after 20 frames."))
        << view.stateText().toStdString();
    view.setStream(nullptr);
}

TEST(InstrumentView, NamesAreEditedInTheNameColumnAndTheStreamTakesThem) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    FedStream stream;
    InstrumentView view;
    view.setStream(&stream);
    stream.feed(
        frame({instrument("atracsys-1000", "newtool.ini", 0.9), instrument("atracsys-1001", "", 0.9)}, 5));
    view.refresh();
    ASSERT_EQ(view.model()->rowCount(), 2);
    EXPECT_TRUE(view.model()->flags(view.model()->index(0, InstrumentTableModel::Name)) & Qt::ItemIsEditable);
    EXPECT_TRUE(view.table()->isColumnHidden(InstrumentTableModel::Id));

    view.model()->setData(view.model()->index(0, InstrumentTableModel::Name), "Stylus");
    ASSERT_TRUE(stream.instrumentNames());
    EXPECT_EQ(stream.instrumentNames()->userName("atracsys-1000"), "Stylus");
    stream.feed(
        frame({instrument("atracsys-1000", "newtool.ini", 0.9), instrument("atracsys-1001", "", 0.9)}, 6));
    view.refresh();
    EXPECT_EQ(cell(*view.model(), 0, InstrumentTableModel::Name), "Stylus");
    EXPECT_EQ(cell(*view.model(), 1, InstrumentTableModel::Name), "atracsys-1001");
    EXPECT_FALSE(view.table()->isColumnHidden(InstrumentTableModel::Id)) << "named: the id shows beside";

    // A name another instrument has, or one that is not letters and digits, is refused and said.
    const auto refused = view.renameInstrument("atracsys-1001", "Stylus");
    ASSERT_TRUE(refused);
    EXPECT_TRUE(capture->contains(Log::Warning, "InstrumentView", "Cannot name atracsys-1001: " + *refused))
        << capture->dump();
    EXPECT_TRUE(view.renameInstrument("atracsys-1001", "my tool"));
    EXPECT_EQ(stream.instrumentNames()->userName("atracsys-1001"), "");
    EXPECT_FALSE(view.renameInstrument("atracsys-1000", "")) << "an empty name gives the id back";
    EXPECT_EQ(stream.instrumentNames()->userName("atracsys-1000"), "");
    view.setStream(nullptr);
}
