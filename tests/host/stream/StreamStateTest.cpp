#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"
#include "host/stream/state/StreamHealth.h"

#include <Eigen/Geometry>
#include <gtest/gtest.h>

using namespace Kestrion;
using namespace std::chrono_literals;

namespace {

TrackingInstrument tool(const std::string& id, const Eigen::Matrix4d& pose, double quality) {
    TrackingInstrument instrument{TrackerID(id)};
    instrument.matrix = pose;
    instrument.quality = quality;
    return instrument;
}

Eigen::Matrix4d pose(double angleDegrees, const Eigen::Vector3d& axis, const Eigen::Vector3d& translation) {
    Eigen::Matrix4d m = Eigen::Matrix4d::Identity();
    m.block<3, 3>(0, 0) =
        Eigen::AngleAxisd(angleDegrees * M_PI / 180.0, axis.normalized()).toRotationMatrix();
    m.block<3, 1>(0, 3) = translation;
    return m;
}

} // namespace

TEST(StreamHealth, DeliversUntilASilenceOfTenPeriodsOrTheMinimumAndCountsOutages) {
    StreamHealth health;
    const auto t0 = StreamHealth::Clock::time_point() + 1h;
    EXPECT_EQ(health.snapshot(t0).state, StreamHealth::State::Stopped);
    health.noteStarted(t0);
    EXPECT_EQ(health.snapshot(t0 + 400ms).state, StreamHealth::State::Delivering);
    EXPECT_EQ(health.snapshot(t0 + 600ms).state, StreamHealth::State::NotDelivering);
    // 10 Hz data: ten periods (1 s) outlast the 500 ms minimum.
    for (int i = 0; i <= 20; ++i)
        health.noteData(t0 + i * 100ms);
    const auto last = t0 + 2000ms;
    EXPECT_EQ(health.snapshot(last + 900ms).state, StreamHealth::State::Delivering);
    const auto silent = health.snapshot(last + 1100ms);
    EXPECT_EQ(silent.state, StreamHealth::State::NotDelivering);
    EXPECT_EQ(*silent.sinceLastData, 1100ms);
    EXPECT_EQ(silent.outages, 0u);
    health.noteFailure("fetch failed");
    health.noteData(last + 3000ms);
    const auto back = health.snapshot(last + 3000ms);
    EXPECT_EQ(back.state, StreamHealth::State::Delivering);
    EXPECT_EQ(back.outages, 1u);
    EXPECT_EQ(back.outageTime, 3000ms);
    EXPECT_EQ(back.lastError, "");
    EXPECT_EQ(back.dataPeriod, 100ms) << "the outage must not enter the measured period";
}

TEST(StreamHealth, AReopeningContinuesTheOutageAndAnEndStaysUntilTheNextStart) {
    StreamHealth health;
    const auto t0 = StreamHealth::Clock::time_point() + 1h;
    health.noteStarted(t0);
    health.noteData(t0 + 10ms);
    health.noteStopped();
    health.noteReopening();
    health.noteStarted(t0 + 2s);
    health.noteData(t0 + 2100ms);
    auto s = health.snapshot(t0 + 2100ms);
    EXPECT_EQ(s.outages, 1u);
    EXPECT_EQ(s.reopenings, 1u);
    health.noteEnded("the recording has ended");
    s = health.snapshot(t0 + 5s);
    EXPECT_EQ(s.state, StreamHealth::State::Ended);
    EXPECT_EQ(s.endReason, "the recording has ended");
    // A deliberate restart begins a new run: the pause is not an outage.
    health.noteStopped();
    health.noteStarted(t0 + 10s);
    health.noteData(t0 + 10s + 20ms);
    s = health.snapshot(t0 + 10s + 20ms);
    EXPECT_EQ(s.state, StreamHealth::State::Delivering);
    EXPECT_EQ(s.outages, 1u);
}

TEST(InstrumentTracking, QualityActivityAndStatusDecideTogether) {
    TrackingStreamData frame(nullptr,
                             {tool("a", pose(0, {0, 0, 1}, {1, 2, 3}), 0.9),
                              tool("b", pose(10, {0, 0, 1}, {1, 2, 3}), 0.0),
                              tool("c", pose(0, {0, 0, 1}, {1, 2, 3}), 0.9)},
                             5, 0);
    auto status = std::make_shared<InstrumentStatusData>();
    InstrumentStatusData::Entry entry;
    entry.instrumentId = "c";
    entry.state = InstrumentStatusData::State::NotInView;
    status->entries().push_back(entry);
    frame.addComponent(status);
    EXPECT_TRUE(isInstrumentTracked(frame, frame.instruments()[0]));
    EXPECT_FALSE(isInstrumentTracked(frame, frame.instruments()[1])) << "quality 0 is never tracked";
    EXPECT_FALSE(isInstrumentTracked(frame, frame.instruments()[2])) << "the status has the last word";
    EXPECT_EQ(frameTimeUS(frame), 5000u);
}

TEST(InstrumentNames, NamesFollowTheTransformNameRuleAndAreUnique) {
    InstrumentNames names;
    EXPECT_FALSE(names.setName("atracsys-1000", "Stylus"));
    EXPECT_EQ(*names.setName("atracsys-1001", "Stylus"),
              "instrument name 'Stylus' is already the name of atracsys-1000");
    EXPECT_EQ(*names.setName("atracsys-1001", "my tool"),
              "instrument name 'my tool' may hold only letters and digits (as in StylusToReference)");
    EXPECT_EQ(*names.setName("atracsys-1001", "reference"),
              "instrument name 'reference' must begin with an upper-case letter (as in StylusToReference)");
    EXPECT_EQ(names.transformName("atracsys-1000"), "Stylus");
    EXPECT_EQ(names.transformName("atracsys-1001"), "Atracsys1001");
    EXPECT_EQ(names.displayName("atracsys-1001"), "atracsys-1001");
    EXPECT_EQ(InstrumentNames::safeName("12-b"), "Tool12b");
}

TEST(ReferencePoseData, PosesAndTipsInTheReferenceFrameOnlyWhenBothAreTracked) {
    const Eigen::Matrix4d reference = pose(30, {1, 2, 3}, {10, -20, 800});
    const Eigen::Matrix4d relative = pose(-50, {0, 1, 1}, {5, 60, -7});
    TrackingStreamData frame(nullptr,
                             {tool("ref", reference, 0.9), tool("stylus", reference * relative, 0.8),
                              tool("hidden", pose(0, {0, 0, 1}, {0, 0, 0}), 0.0)},
                             0, 0);
    auto tips = std::make_shared<InstrumentTipData>();
    InstrumentTipData::Entry tip;
    tip.instrumentId = "stylus";
    tip.tipInMarker = Eigen::Vector3d(0, 0, 150);
    tip.tipInCamera = (reference * relative * tip.tipInMarker.homogeneous()).head<3>();
    tips->entries().push_back(tip);
    frame.addComponent(tips);

    const auto data = ReferencePoseData::compute(frame, "ref");
    ASSERT_TRUE(data.referenceTracked());
    ASSERT_EQ(data.entries().size(), 1u);
    const auto* stylus = data.find("stylus");
    ASSERT_NE(stylus, nullptr);
    EXPECT_TRUE(stylus->poseInReference.isApprox(relative, 1e-12));
    EXPECT_TRUE(stylus->tipInReference->isApprox((relative * tip.tipInMarker.homogeneous()).head<3>(), 1e-9));

    TrackingStreamData lost(nullptr, {tool("ref", reference, 0.0), tool("stylus", reference * relative, 0.8)},
                            0, 0);
    const auto none = ReferencePoseData::compute(lost, "ref");
    EXPECT_FALSE(none.referenceTracked());
    EXPECT_TRUE(none.entries().empty());
}
