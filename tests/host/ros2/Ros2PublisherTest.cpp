// The publisher on the loopback, in-process, read by subscriber processes built from the same
// message definitions: what each subscriber gets frame by frame, with and without a reference,
// and the diagnostics on a status change.
#include "Ros2TestSupport.h"

#include "host/ros2/Ros2Publisher.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"
#include "host/stream/state/InstrumentNames.h"
#include "tests/support/LogCapture.h"

#include <Eigen/Geometry>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>

namespace Kestrion::Ros2 {
namespace {

using Ros2Test::Received;
using Ros2Test::SubscriberProcess;

constexpr std::uint64_t FirstStampUS = 1'700'000'000'123'456;

/// A tracking stream whose frames the test emits itself, playing the worker.
class ScriptedStream : public TrackingStream {
public:
    ScriptedStream()
        : TrackingStream("scripted") {}
    ~ScriptedStream() override { close(); }
    std::vector<TrackingInstrument> instruments() const override { return {}; }

    struct Tool {
        Tool(std::string toolId, bool isTracked = true,
             std::optional<InstrumentStatusData::State> toolState = {}, std::string toolReason = {})
            : id(std::move(toolId))
            , tracked(isTracked)
            , state(toolState)
            , reason(std::move(toolReason)) {}
        std::string id;
        bool tracked;
        std::optional<InstrumentStatusData::State> state; // none: the frame has no status
        std::string reason;
    };

    /// The pose of a tool in frame k: a rotation about a tilted axis and a moving translation (mm).
    static Eigen::Matrix4d pose(std::size_t tool, std::uint64_t k) {
        Eigen::Matrix4d m = Eigen::Matrix4d::Identity();
        m.block<3, 3>(0, 0) = Eigen::AngleAxisd(0.1 * static_cast<double>(k) + static_cast<double>(tool),
                                                Eigen::Vector3d(1, 2, 3).normalized())
                                  .toRotationMatrix();
        m.block<3, 1>(0, 3) =
            Eigen::Vector3d(10.0 * static_cast<double>(k) - 250.5, 33.25 * static_cast<double>(tool),
                            900.0 + static_cast<double>(k));
        return m;
    }
    static std::uint64_t stampUS(std::uint64_t k) { return FirstStampUS + k * 2985; }

    void emitFrame(std::uint64_t k, const std::vector<Tool>& tools) {
        std::vector<TrackingInstrument> instruments;
        auto statuses = std::make_shared<InstrumentStatusData>();
        auto tips = std::make_shared<InstrumentTipData>();
        for (std::size_t i = 0; i < tools.size(); ++i) {
            TrackingInstrument instrument{TrackerID(tools[i].id)};
            instrument.matrix = pose(i, k);
            instrument.quality = tools[i].tracked ? 0.9 : 0.0;
            instruments.push_back(instrument);
            if (tools[i].state)
                statuses->entries().push_back({tools[i].id, *tools[i].state, tools[i].reason});
            if (tools[i].tracked && i == 0)
                tips->entries().push_back(
                    {tools[i].id, Eigen::Vector3d(1.5, -2, 150), Eigen::Vector3d::Zero()});
        }
        auto frame =
            std::make_shared<TrackingStreamData>(this, instruments, stampUS(k) / 1000 + 3, stampUS(k) / 1000);
        if (!statuses->entries().empty())
            frame->addComponent(statuses);
        frame->addComponent(tips);
        auto fiducials = std::make_shared<TrackingInstrumentFiducialsData>();
        fiducials->addFiducial({1, 2, 3 + static_cast<double>(k)}, 0, 0, 1, 0, 0, 1, 1);
        fiducials->addFiducial({-100.25, 50, 1200}, 0, TrackingInstrumentFiducialsData::NoInstrument, 1, 0, 0,
                               1, 1);
        frame->addComponent(fiducials);
        frame->addComponent(std::make_shared<CaptureTimeData>(stampUS(k), k * 2985));
        completeFrame(*frame);
        emitStreamData(frame);
    }
};

/// Whether `r` is the pose `m` (mm) in metres with an equal rotation.
::testing::AssertionResult samePose(const Received& r, const Eigen::Matrix4d& m) {
    const Eigen::Quaterniond q(r.rotation[3], r.rotation[0], r.rotation[1], r.rotation[2]);
    const double rotationError = (q.toRotationMatrix() - m.block<3, 3>(0, 0)).cwiseAbs().maxCoeff();
    const double translationError =
        (Eigen::Vector3d(r.translation[0], r.translation[1], r.translation[2]) - m.block<3, 1>(0, 3) * 0.001)
            .cwiseAbs()
            .maxCoeff();
    if (rotationError < 1e-12 && translationError < 1e-12 && std::abs(q.norm() - 1.0) < 1e-12 &&
        r.rotation[3] >= 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "rotation off by " << rotationError << ", translation by " << translationError << " m";
}

/// The transforms and poses of a subscriber, by stamp.
std::multimap<std::uint64_t, Received> received(const SubscriberProcess& subscriber) {
    std::multimap<std::uint64_t, Received> result;
    for (const auto& line : subscriber.lines())
        if (auto r = Ros2Test::parseLine(line))
            result.emplace(r->stampUS, *r);
    return result;
}

std::string stampText(std::uint64_t us) {
    return std::to_string(us / 1000000) + " " + std::to_string(us % 1000000 * 1000);
}

class Ros2PublisherTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::unsetenv("CYCLONEDDS_URI");
        // The test's pauses are not the camera's silences.
        stream.health().setSilenceThreshold(std::chrono::hours(1));
        ASSERT_TRUE(stream.open() && stream.start());
        InstrumentNames names;
        ASSERT_FALSE(names.setName("atracsys-1000", "Stylus"));
        stream.setInstrumentNames(names);
    }

    /// Starts the publisher and `count` subscribers, and emits frames until each subscriber got
    /// the messages of every topic (all matched). Returns the next frame's number.
    std::uint64_t startAndMatch(std::size_t count, const std::vector<ScriptedStream::Tool>& tools,
                                double diagnosticsPeriodS = 1.0) {
        Ros2Settings settings;
        settings.domainId = Ros2Test::testDomain();
        settings.diagnosticsPeriodS = diagnosticsPeriodS;
        publisher = std::make_unique<Ros2Publisher>(settings);
        EXPECT_TRUE(publisher->start());
        publisher->serve(&stream);
        for (std::size_t i = 0; i < count; ++i)
            subscribers.push_back(std::make_unique<SubscriberProcess>(
                settings.domainId.value(), "atracsys", std::vector<std::string>{"Stylus", "atracsys_1001"}));
        std::uint64_t k = 0;
        for (auto& subscriber : subscribers) {
            EXPECT_TRUE(subscriber->waitFor([&](const std::vector<std::string>&) {
                stream.emitFrame(k++, tools);
                subscriber->pump();
                return subscriber->has("tf ") && subscriber->has("pose Stylus ") &&
                       subscriber->has("cloud ") && subscriber->has("diag ");
            }));
        }
        return k;
    }

    /// Emits frame k and waits until every subscriber has its /tf message.
    void emitAndWait(std::uint64_t k, const std::vector<ScriptedStream::Tool>& tools) {
        stream.emitFrame(k, tools);
        const std::string prefix = "tf " + stampText(ScriptedStream::stampUS(k)) + " ";
        for (auto& subscriber : subscribers)
            EXPECT_TRUE(subscriber->waitFor([&](const std::vector<std::string>& lines) {
                return subscriber->has(prefix);
            })) << "frame "
                << k;
    }

    void finish() {
        stream.stop();
        publisher->stop();
        for (auto& subscriber : subscribers)
            EXPECT_TRUE(subscriber->finish());
    }

    TestSupport::LogCapture log;
    ScriptedStream stream;
    std::unique_ptr<Ros2Publisher> publisher;
    std::vector<std::unique_ptr<SubscriberProcess>> subscribers;
};

TEST_F(Ros2PublisherTest, EverySubscriberGetsEachTrackedToolItsTipAndTheFiducialsButNothingOfAHiddenTool) {
    const std::vector<ScriptedStream::Tool> tools{{"atracsys-1000"}, {"atracsys-1001", false}};
    const std::uint64_t first = startAndMatch(3, tools);
    EXPECT_EQ(publisher->subscribers(), 3u);
    const std::uint64_t last = first + 20;
    for (std::uint64_t k = first; k < last; ++k)
        emitAndWait(k, tools);
    finish();

    for (auto& subscriber : subscribers) {
        const auto all = received(*subscriber);
        for (std::uint64_t k = first; k < last; ++k) {
            const auto [begin, end] = all.equal_range(ScriptedStream::stampUS(k));
            std::map<std::string, Received> got; // "tf Stylus", "pose Stylus", ...
            for (auto it = begin; it != end; ++it)
                EXPECT_TRUE(got.emplace(it->second.kind + " " +
                                            (it->second.kind == "tf" ? it->second.child : it->second.tool),
                                        it->second)
                                .second)
                    << "twice in frame " << k;
            ASSERT_EQ(got.size(), 3u) << "frame " << k; // tool, tip, pose: nothing of atracsys-1001
            const Received& tool = got.at("tf Stylus");
            EXPECT_EQ(tool.parent, "atracsys_camera");
            EXPECT_TRUE(samePose(tool, ScriptedStream::pose(0, k))) << "frame " << k;
            const Received& pose = got.at("pose Stylus");
            EXPECT_EQ(pose.parent, "atracsys_camera");
            EXPECT_TRUE(samePose(pose, ScriptedStream::pose(0, k)));
            const Received& tip = got.at("tf Stylus_tip");
            EXPECT_EQ(tip.parent, "Stylus");
            EXPECT_EQ(tip.translation, (std::array<double, 3>{1.5 * 0.001, -2 * 0.001, 150 * 0.001}));
            EXPECT_EQ(tip.rotation, (std::array<double, 4>{0, 0, 0, 1}));
        }
        // The fiducials in metres, float32 x y z, in the camera's frame.
        const std::string cloud = "cloud " + stampText(ScriptedStream::stampUS(first)) +
                                  " atracsys_camera 1 2 12 24 0 1 x:0:7:1,y:4:7:1,z:8:7:1 ";
        const auto line = std::find_if(subscriber->lines().begin(), subscriber->lines().end(),
                                       [&](const std::string& l) { return l.rfind(cloud, 0) == 0; });
        ASSERT_NE(line, subscriber->lines().end()) << cloud;
        std::istringstream values(line->substr(cloud.size()));
        const double mm[6] = {1, 2, 3 + static_cast<double>(first), -100.25, 50, 1200};
        for (double expected : mm) {
            float value = 0;
            values >> value;
            EXPECT_EQ(value, static_cast<float>(expected * 0.001));
        }
    }
}

TEST_F(Ros2PublisherTest, WithAReferenceTheToolsAreItsChildrenAndNothingWhileItIsNotSeen) {
    stream.setReferenceInstrument("atracsys-1001");
    const std::vector<ScriptedStream::Tool> seen{{"atracsys-1000"}, {"atracsys-1001"}};
    const std::uint64_t first = startAndMatch(1, seen);
    emitAndWait(first, seen);
    const std::vector<ScriptedStream::Tool> hidden{{"atracsys-1000"}, {"atracsys-1001", false}};
    stream.emitFrame(first + 1, hidden);
    SubscriberProcess& subscriber = *subscribers.front();
    EXPECT_TRUE(subscriber.waitFor([&](const std::vector<std::string>&) {
        return subscriber.has("diag atracsys: Stylus|1|reference not seen|atracsys-1000|");
    }));
    emitAndWait(first + 2, seen);
    finish();

    const auto all = received(subscriber);
    const Eigen::Matrix4d reference = ScriptedStream::pose(1, first);
    int checked = 0;
    for (auto it = all.lower_bound(ScriptedStream::stampUS(first));
         it != all.upper_bound(ScriptedStream::stampUS(first)); ++it) {
        const Received& r = it->second;
        if (r.kind == "tf" && r.child == "atracsys_1001") {
            EXPECT_EQ(r.parent, "atracsys_camera");
            EXPECT_TRUE(samePose(r, reference));
            ++checked;
        } else if (r.child == "Stylus" || r.tool == "Stylus") {
            EXPECT_EQ(r.parent, "atracsys_1001");
            EXPECT_TRUE(samePose(r, reference.inverse() * ScriptedStream::pose(0, first)));
            ++checked;
        }
    }
    EXPECT_EQ(checked, 3); // reference, tool on /tf, tool's pose
    EXPECT_EQ(all.count(ScriptedStream::stampUS(first + 1)), 0u)
        << "published while the reference was hidden";
}

TEST_F(Ros2PublisherTest, DiagnosticsComeOnAStatusChangeWithTheReason) {
    using State = InstrumentStatusData::State;
    std::vector<ScriptedStream::Tool> tools{
        {"atracsys-1000", true, State::Tracked, ""},
        {"atracsys-1001", false, State::NotInView, "no fiducial in view"}};
    // A period longer than the test: only changes send.
    const std::uint64_t first = startAndMatch(2, tools, 3600.0);
    for (std::uint64_t k = first; k < first + 5; ++k)
        emitAndWait(k, tools);
    tools[0] = {"atracsys-1000", false, State::PartlySeen, "fiducials 1, 2 of 4 found; 3, 4 missing"};
    stream.emitFrame(first + 5, tools);
    for (auto& subscriber : subscribers)
        EXPECT_TRUE(subscriber->waitFor([&](const std::vector<std::string>&) {
            return subscriber->has("diag atracsys: Stylus|1|partly seen|atracsys-1000|reason=fiducials 1, 2 "
                                   "of 4 found; 3, 4 missing");
        }));
    finish();
    for (auto& subscriber : subscribers) {
        // One array when the subscriber matched (or later), one at the change, one when the
        // stream stopped and one when it was no longer served: no more for the unchanged frames.
        std::size_t cameras = 0;
        for (const auto& line : subscriber->lines())
            cameras += line.rfind("diag atracsys: camera|", 0) == 0;
        EXPECT_LE(cameras, 5u);
        EXPECT_TRUE(subscriber->has("diag atracsys: camera|0|delivering|scripted|data items="));
        EXPECT_TRUE(subscriber->has("diag atracsys: Stylus|0|tracked|atracsys-1000|reason="));
        EXPECT_TRUE(subscriber->has(
            "diag atracsys: atracsys_1001|1|not in view|atracsys-1001|reason=no fiducial in view"));
        EXPECT_TRUE(subscriber->has("diag atracsys: camera|3|no tracking stream||"));
    }
}

TEST(Ros2PublisherStart, RefusesANetworkInterfaceOrANameItCannotUse) {
    TestSupport::LogCapture log;
    ::unsetenv("CYCLONEDDS_URI");
    Ros2Settings settings;
    settings.domainId = Ros2Test::testDomain();
    settings.networkInterface = "nosuchinterface7";
    std::string error;
    EXPECT_FALSE(Ros2Publisher(settings).start(&error));
    EXPECT_EQ(error.rfind("ROS 2 publisher cannot start: domain " + std::to_string(*settings.domainId) +
                              " (interface nosuchinterface7): Cyclone DDS refused the network configuration",
                          0),
              0u)
        << error;
    EXPECT_TRUE(log->contains(Log::Error, "Ros2Publisher", error));
    settings.networkInterface.clear();
    settings.nameSpace = "lab/2nd";
    EXPECT_FALSE(Ros2Publisher(settings).start(&error));
    EXPECT_EQ(
        error,
        "ROS 2 publisher cannot start: the ROS 2 namespace 'lab/2nd' has a part beginning with a digit");
}

} // namespace
} // namespace Kestrion::Ros2
