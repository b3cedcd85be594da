// The camera health panel over the host's StreamHealth of a stream the test feeds.

#include "host/lib/trackingviews/StreamHealthView.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <thread>

using namespace Kestrion;

namespace {

class HealthFedStream : public TrackingStream {
public:
    HealthFedStream()
        : TrackingStream("camera") {}
    std::vector<TrackingInstrument> instruments() const override { return {}; }
    void feed() {
        emitStreamData(
            std::make_shared<TrackingStreamData>(nullptr, std::vector<TrackingInstrument>{}, 1, 1));
    }
};

} // namespace

TEST(StreamHealthView, ShowsRateFramesOutagesAndReconnectionsAndRaisesTheAlarmWhenSilent) {
    TestSupport::guiApplication();
    HealthFedStream stream;
    stream.health().setSilenceThreshold(std::chrono::milliseconds(40));
    StreamHealthView view;
    QSignalSpy summaries(&view, &StreamHealthView::summaryChanged);
    view.setStream(&stream);
    EXPECT_EQ(view.field("State"), "stopped (closed)");
    EXPECT_EQ(view.field("Since last frame"), "no frame yet");
    EXPECT_EQ(view.summary(), "camera: stream closed");
    EXPECT_FALSE(view.alarming());

    ASSERT_TRUE(stream.open() && stream.start());
    for (int i = 0; i < 5; ++i) {
        stream.feed();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    view.refresh();
    EXPECT_EQ(view.field("State"), "delivering");
    EXPECT_EQ(view.field("Frames"), "5");
    EXPECT_TRUE(view.field("Frame rate").endsWith(" Hz")) << view.field("Frame rate").toStdString();
    EXPECT_TRUE(view.summary().startsWith("camera: delivering, ")) << view.summary().toStdString();
    EXPECT_EQ(view.field("Outages"), "none");

    // Silent: the alarm, with the time since the last frame and the failure.
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    stream.health().noteFailure("Device 0x1000 was disconnected");
    view.refresh();
    EXPECT_TRUE(view.alarming());
    EXPECT_EQ(view.field("State"), "not delivering");
    EXPECT_EQ(view.field("Frame rate"), "-");
    EXPECT_EQ(view.field("Last error"), "Device 0x1000 was disconnected");
    EXPECT_TRUE(view.summary().startsWith("camera: camera not delivering for "))
        << view.summary().toStdString();
    EXPECT_EQ(summaries.count(), 3) << "closed, delivering, not delivering";

    // Back after a reopening: one outage counted, the reconnection too.
    stream.health().noteReopening();
    ASSERT_TRUE(stream.stop() && stream.start());
    stream.feed();
    view.refresh();
    EXPECT_FALSE(view.alarming());
    EXPECT_TRUE(view.field("Outages").startsWith("1, ")) << view.field("Outages").toStdString();
    EXPECT_EQ(view.field("Reconnections"), "1");
    EXPECT_EQ(view.field("Last error"), "");
    view.setStream(nullptr);
}
