// The OpenIGTLink server on the loopback address: what each client gets, and that broken, slow
// and surplus clients are dropped without disturbing the others.
#include "IgtlTestClient.h"

#include "host/core/SharedImage.h"
#include "host/core/TypedImage.h"
#include "host/igtl/IgtlServer.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"
#include "host/stream/state/InstrumentNames.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

#include <igtlImageMessage.h>
#include <igtlStatusMessage.h>
#include <igtlTrackingDataMessage.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <thread>

namespace Kestrion::Igtl {
namespace {

using IgtlTest::IgtlTestClient;
using IgtlTest::packed;
using Bytes = std::vector<std::uint8_t>;

/// The capture time the scripted stream gives a frame: 2.5 ms before the device's stamp.
std::uint64_t captureTimeUS(std::uint64_t timestampMs) {
    return timestampMs * 1000 - 2500;
}

/// A tracking stream whose frames the test emits itself, on its own thread.
class ScriptedStream : public TrackingStream {
public:
    ScriptedStream()
        : TrackingStream("scripted") {}
    ~ScriptedStream() override { close(); }
    std::vector<TrackingInstrument> instruments() const override { return {}; }
    void emitData(std::shared_ptr<const StreamData> data) { emitStreamData(std::move(data)); }
    void emitFrame(std::uint64_t timestampMs, std::size_t fiducials = 0, bool withImage = false) {
        TrackingInstrument tool{TrackerID("atracsys-1")};
        tool.quality = 0.9;
        tool.matrix(2, 3) = static_cast<double>(timestampMs % 1000);
        auto frame = std::make_shared<TrackingStreamData>(this, std::vector<TrackingInstrument>{tool},
                                                          timestampMs + 3, timestampMs);
        frame->addComponent(std::make_shared<CaptureTimeData>(captureTimeUS(timestampMs), timestampMs));
        auto points = std::make_shared<TrackingInstrumentFiducialsData>();
        for (std::size_t i = 0; i < fiducials; ++i)
            points->addFiducial({1, 2, 3}, 0, 0, 1, 0, 0, 1, 1);
        frame->addComponent(points);
        if (!withImage)
            return emitStreamData(frame);
        auto image = std::make_shared<TypedImage<std::uint8_t>>(ImageDescriptor(PixelType::UInt8, 1, 4, 3));
        auto camera = std::make_shared<ImageStreamData>(nullptr, std::make_shared<SharedImage>(image));
        emitStreamData(std::make_shared<CompoundStreamData>(
            frame, std::vector<std::shared_ptr<const StreamData>>{camera}));
    }
};

/// Emits a frame of a tool ("atracsys-1", with a tip) and a reference ("atracsys-2", turned by 90
/// degrees about z), completed by the stream (names, poses in the reference's frame).
void emitToolAndReference(ScriptedStream& stream, std::uint64_t timestampMs, bool referenceSeen) {
    TrackingInstrument tool{TrackerID("atracsys-1")};
    tool.quality = 0.9;
    tool.matrix.block<3, 1>(0, 3) << 10, 20, 700;
    TrackingInstrument reference{TrackerID("atracsys-2")};
    reference.quality = referenceSeen ? 0.9 : 0.0;
    reference.matrix.block<3, 3>(0, 0) << 0, -1, 0, 1, 0, 0, 0, 0, 1;
    reference.matrix.block<3, 1>(0, 3) << 100, 0, 700;
    auto frame = std::make_shared<TrackingStreamData>(
        &stream, std::vector<TrackingInstrument>{tool, reference}, timestampMs, timestampMs);
    auto tips = std::make_shared<InstrumentTipData>();
    tips->entries().push_back({"atracsys-1", {0, 0, 100}, {10, 20, 800}});
    frame->addComponent(tips);
    stream.completeFrame(*frame);
    stream.emitData(frame);
}

/// The TRANSFORMs received up to the next TDATA, in order, and that TDATA.
struct FrameMessages {
    std::vector<std::string> names;
    std::map<std::string, IgtlTest::ReceivedMessage> transforms;
    std::optional<IgtlTest::ReceivedMessage> trackingData;
};
FrameMessages readUntilTrackingData(IgtlTestClient& client) {
    FrameMessages frame;
    while (auto message = client.next("")) {
        if (message->type == "TDATA") {
            frame.trackingData = message;
            break;
        }
        if (message->type == "TRANSFORM") {
            frame.names.push_back(message->name);
            frame.transforms[message->name] = *message;
        }
    }
    return frame;
}

std::vector<std::string> elementNames(const IgtlTest::ReceivedMessage& message) {
    auto tdata = IgtlTest::unpackAs<igtl::TrackingDataMessage>(message.pack);
    std::vector<std::string> names;
    for (int i = 0; tdata && i < tdata->GetNumberOfTrackingDataElements(); ++i) {
        igtl::TrackingDataElement::Pointer element;
        tdata->GetTrackingDataElement(i, element);
        names.push_back(element->GetName());
    }
    return names;
}

int statusCode(const IgtlTest::ReceivedMessage& message) {
    return IgtlTest::unpackAs<igtl::StatusMessage>(message.pack)->GetCode();
}

using TestSupport::waitFor;
bool waitForClients(const IgtlServer& server, std::size_t count) {
    return waitFor([&] { return server.clients().size() == count; });
}

IgtlServerSettings loopback() {
    IgtlServerSettings settings;
    settings.port = 0;
    return settings;
}

TEST(IgtlServer, ServesPosesTrackingDataAndStatusToEachClient) {
    TestSupport::LogCapture log;
    ScriptedStream stream;
    IgtlServer server(loopback());
    ASSERT_TRUE(server.start());
    server.serve(&stream);
    EXPECT_TRUE(stream.instrumentStatusRequested());
    ASSERT_TRUE(stream.open() && stream.start());

    IgtlTestClient a(server.port());
    auto camera = a.next("STATUS");
    ASSERT_TRUE(camera);
    EXPECT_EQ(camera->name, "camera");
    EXPECT_EQ(statusCode(*camera), igtl::StatusMessage::STATUS_OK);
    // As an OpenIGTLink 3 client: a STATUS with metadata, then STT_TDATA, in header version 2.
    a.send(IgtlTest::version2("STATUS", Bytes(30, 0), {{"ConnectorName", "Slicer"}}));
    a.send(IgtlTest::version2("STT_TDATA", IgtlTest::startContent(0), {{"ConnectorName", "Slicer"}}));
    ASSERT_TRUE(a.next("RTS_TDATA"));
    stream.emitFrame(1700000000100, 0, true);
    auto pose = a.next("TRANSFORM");
    ASSERT_TRUE(pose);
    EXPECT_EQ(pose->name, "atracsys-1");
    EXPECT_EQ(IgtlTest::timestampUS(pose->pack), captureTimeUS(1700000000100));
    ASSERT_TRUE(a.next("TDATA"));
    auto image = a.next("IMAGE"); // packed on its own thread, after the poses
    ASSERT_TRUE(image);
    EXPECT_EQ(IgtlTest::timestampUS(image->pack), captureTimeUS(1700000000100)); // its frame's time
    int size[3];
    IgtlTest::unpackAs<igtl::ImageMessage>(image->pack)->GetDimensions(size);
    EXPECT_EQ(size[0] * 10 + size[1], 43);

    // A later client hears of the camera and of the instrument first.
    IgtlTestClient b(server.port());
    ASSERT_TRUE(waitForClients(server, 2));
    auto tool = b.next("STATUS");
    ASSERT_TRUE(tool && b.next("STATUS"));
    stream.emitFrame(1700000000200);
    EXPECT_TRUE(b.next("TRANSFORM"));
    EXPECT_TRUE(a.next("TRANSFORM"));
    // Camera and instrument status, RTS_TDATA, two frames of TRANSFORM and TDATA, the image.
    EXPECT_TRUE(waitFor([&] { return server.clients()[0].messagesSent == 8; }));
    EXPECT_TRUE(server.clients()[0].trackingData);
    EXPECT_FALSE(server.clients()[1].trackingData);
    const std::string bAddress = b.address();
    b.finishSending();
    ASSERT_TRUE(waitForClients(server, 1));

    stream.close(); // through stopping (not tracking) to closed
    std::optional<Igtl::IgtlTest::ReceivedMessage> status;
    while ((status = a.next("STATUS")) &&
           (status->name != "camera" || statusCode(*status) == igtl::StatusMessage::STATUS_NOT_READY))
        ;
    ASSERT_TRUE(status);
    EXPECT_EQ(statusCode(*status), igtl::StatusMessage::STATUS_DISABLED);
    const std::string where = "127.0.0.1:" + std::to_string(server.port());
    const std::string aAddress = a.address();
    a.close();
    server.stop();
    EXPECT_FALSE(stream.instrumentStatusRequested());
    EXPECT_TRUE(log->contains(Log::Info, "IgtlServer", "OpenIGTLink server listening on " + where))
        << log->dump();
    EXPECT_TRUE(log->contains(Log::Info, "IgtlServer", "OpenIGTLink client " + aAddress + " connected"));
    EXPECT_TRUE(log->contains(Log::Info, "IgtlServer", "OpenIGTLink client " + bAddress + " disconnected"));
    EXPECT_TRUE(log->contains(Log::Info, "IgtlServer", "OpenIGTLink server stopped"));
}

TEST(IgtlServer, DropsBrokenSlowAndSurplusClientsWhileTheOthersGoOn) {
    TestSupport::LogCapture log;
    ScriptedStream stream;
    IgtlServerSettings settings = loopback();
    settings.maxClients = 4;
    settings.sendTimeoutMs = 200;
    IgtlServer server(settings);
    ASSERT_TRUE(server.start());
    server.serve(&stream);

    IgtlTestClient good(server.port());
    IgtlTestClient stalled(server.port(), 4096);
    IgtlTestClient garbage(server.port());
    IgtlTestClient halfway(server.port());
    ASSERT_TRUE(waitForClients(server, 4));
    IgtlTestClient surplus(server.port());
    EXPECT_FALSE(surplus.next("STATUS")); // closed before anything is sent

    garbage.send(Bytes(64, 0x47));
    Bytes header = packed(igtl::StopTrackingDataMessage::New());
    header.resize(30);
    halfway.send(header);
    halfway.finishSending();
    ASSERT_TRUE(waitForClients(server, 2));

    // Large frames until the client that never reads has been dropped; the good one gets each.
    std::atomic<int> received{0};
    std::thread reader([&] {
        while (good.next("TRANSFORM"))
            ++received;
    });
    int emitted = 0;
    while (server.clients().size() > 1 && emitted < 5000) {
        stream.emitFrame(1700000000000 + static_cast<std::uint64_t>(emitted), 3000);
        ++emitted;
        for (int i = 0; i < 2000 && received.load() < emitted; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(server.clients().size(), 1u);
    EXPECT_EQ(received.load(), emitted);
    EXPECT_EQ(server.clients()[0].messagesDropped, 0u);
    const std::string stalledAddress = stalled.address();
    server.stop();
    reader.join();

    const auto warned = [&](const std::string& who, const std::string& what) {
        return log->contains(Log::Warning, "IgtlServer", "OpenIGTLink client " + who + what);
    };
    EXPECT_TRUE(warned(surplus.address(), " refused: the limit of 4 clients is reached")) << log->dump();
    EXPECT_TRUE(warned(garbage.address(), " dropped: unsupported header version 18247"));
    EXPECT_TRUE(warned(halfway.address(), " dropped: disconnected in the middle of a message"));
    EXPECT_TRUE(warned(stalledAddress, " dropped: stopped reading for 200 ms"));
}

/// The next STATUS of that device.
std::optional<IgtlTest::ReceivedMessage> nextStatusOf(IgtlTestClient& client, const std::string& name) {
    std::optional<IgtlTest::ReceivedMessage> status;
    while ((status = client.next("STATUS")) && status->name != name)
        ;
    return status;
}

TEST(IgtlServer, CameraThatStopsDeliveringLeavesNoInstrumentTracked) {
    ScriptedStream stream;
    // The stream's health says when frames stopped: here after 100 ms without one.
    stream.health().setSilenceThreshold(std::chrono::milliseconds(100));
    IgtlServer server(loopback());
    ASSERT_TRUE(server.start());
    server.serve(&stream);
    IgtlTestClient client(server.port());
    auto closed = client.next("STATUS");
    ASSERT_TRUE(closed);
    EXPECT_EQ(statusCode(*closed), igtl::StatusMessage::STATUS_DISABLED);
    ASSERT_TRUE(stream.open() && stream.start());
    stream.emitFrame(1700000000000);
    auto tracked = nextStatusOf(client, "atracsys-1");
    ASSERT_TRUE(tracked);
    EXPECT_EQ(statusCode(*tracked), igtl::StatusMessage::STATUS_OK);

    // No frame for 100 ms: the camera, and each instrument with the camera's reason.
    std::optional<IgtlTest::ReceivedMessage> status;
    while ((status = nextStatusOf(client, "camera")) &&
           statusCode(*status) != igtl::StatusMessage::STATUS_TIME_OUT)
        EXPECT_EQ(statusCode(*status), igtl::StatusMessage::STATUS_OK);
    ASSERT_TRUE(status);
    auto tool = client.next("STATUS");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->name, "atracsys-1");
    EXPECT_EQ(statusCode(*tool), igtl::StatusMessage::STATUS_NOT_FOUND);
    EXPECT_STREQ(IgtlTest::unpackAs<igtl::StatusMessage>(tool->pack)->GetStatusString(),
                 "camera not delivering frames");

    // Frames again: the instrument's own state comes back, then the camera's.
    stream.emitFrame(1700000002000);
    auto back = client.next("STATUS");
    ASSERT_TRUE(back);
    EXPECT_EQ(back->name, "atracsys-1");
    EXPECT_EQ(statusCode(*back), igtl::StatusMessage::STATUS_OK);
    auto again = nextStatusOf(client, "camera");
    ASSERT_TRUE(again);
    EXPECT_EQ(statusCode(*again), igtl::StatusMessage::STATUS_OK);
}

TEST(IgtlServer, AClientThatResetsItsConnectionIsADisconnection) {
    TestSupport::LogCapture log;
    ScriptedStream stream;
    IgtlServer server(loopback());
    ASSERT_TRUE(server.start());
    server.serve(&stream);
    IgtlTestClient client(server.port());
    ASSERT_TRUE(client.next("STATUS")); // more is on its way, unread
    const std::string address = client.address();
    client.send(IgtlTest::version2("GET_STATUS", {}, {}));
    client.reset();
    ASSERT_TRUE(waitForClients(server, 0));
    server.stop();
    EXPECT_TRUE(log->contains(Log::Info, "IgtlServer", "OpenIGTLink client " + address + " disconnected"))
        << log->dump();
    EXPECT_EQ(log->dump().find("dropped"), std::string::npos) << log->dump();
}

TEST(IgtlServer, StopsWhileImagesFlow) {
    ScriptedStream stream;
    IgtlServerSettings settings = loopback();
    settings.imageRateHz = 1000.0; // every frame's images are packed
    IgtlServer server(settings);
    std::atomic<bool> emitting{true};
    std::thread camera([&] {
        for (std::uint64_t t = 1700000000000; emitting.load(); ++t) {
            stream.emitFrame(t, 0, true);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    // Each round stops the server while its image thread packs or waits for images: a stop that
    // missed its wake-up would never return.
    for (int round = 0; round < 25; ++round) {
        ASSERT_TRUE(server.start());
        server.serve(&stream);
        IgtlTestClient client(server.port());
        ASSERT_TRUE(client.next("IMAGE")) << "round " << round;
        server.stop();
        EXPECT_FALSE(server.isListening());
    }
    emitting = false;
    camera.join();
}

TEST(IgtlServer, ServesNamedInstrumentsAndPosesInTheReferencesFrameOnlyWhenValid) {
    ScriptedStream stream;
    InstrumentNames names;
    ASSERT_FALSE(names.setName("atracsys-1", "Stylus"));
    ASSERT_FALSE(names.setName("atracsys-2", "Reference"));
    stream.setInstrumentNames(names);
    stream.setReferenceInstrument("atracsys-2");
    IgtlServer server(loopback());
    ASSERT_TRUE(server.start());
    server.serve(&stream);
    // One client asks for TDATA in the reference's coordinates, the other in the camera's.
    IgtlTestClient inReference(server.port()), inCamera(server.port());
    auto start = igtl::StartTrackingDataMessage::New();
    start->SetResolution(0);
    start->SetCoordinateName("Reference");
    inReference.send(packed(start));
    start->SetCoordinateName("");
    inCamera.send(packed(start));
    ASSERT_TRUE(inReference.next("RTS_TDATA") && inCamera.next("RTS_TDATA"));

    emitToolAndReference(stream, 1700000000000, true);
    FrameMessages seen = readUntilTrackingData(inReference);
    EXPECT_EQ(seen.names,
              (std::vector<std::string>{"StylusToTracker", "StylusTipToTracker", "StylusToReference",
                                        "StylusTipToReference", "ReferenceToTracker"}));
    // inv(T_reference) * T_tool: the reference turned by 90 degrees about z at (100, 0, 700).
    igtl::Matrix4x4 m;
    IgtlTest::unpackAs<igtl::TransformMessage>(seen.transforms["StylusToReference"].pack)->GetMatrix(m);
    EXPECT_EQ(std::vector<float>({m[0][1], m[1][0], m[0][3], m[1][3], m[2][3]}),
              std::vector<float>({1, -1, 20, 90, 0}));
    IgtlTest::unpackAs<igtl::TransformMessage>(seen.transforms["StylusTipToReference"].pack)->GetMatrix(m);
    EXPECT_EQ(std::vector<float>({m[0][3], m[1][3], m[2][3]}), std::vector<float>({20, 90, 100}));
    ASSERT_TRUE(seen.trackingData);
    EXPECT_EQ(elementNames(*seen.trackingData), std::vector<std::string>{"StylusToReference"});
    seen = readUntilTrackingData(inCamera);
    ASSERT_TRUE(seen.trackingData);
    EXPECT_EQ(elementNames(*seen.trackingData), (std::vector<std::string>{"Stylus", "Reference"}));

    // The reference hidden: nothing in its frame (no TDATA for the client that asked in it), the
    // camera's frame goes on.
    emitToolAndReference(stream, 1700000000100, false);
    seen = readUntilTrackingData(inCamera);
    EXPECT_EQ(seen.names, (std::vector<std::string>{"StylusToTracker", "StylusTipToTracker"}));
    ASSERT_TRUE(seen.trackingData);
    EXPECT_EQ(elementNames(*seen.trackingData), std::vector<std::string>{"Stylus"});
    emitToolAndReference(stream, 1700000000200, true);
    seen = readUntilTrackingData(inReference);
    EXPECT_EQ(seen.names,
              (std::vector<std::string>{"StylusToTracker", "StylusTipToTracker", "StylusToTracker",
                                        "StylusTipToTracker", "StylusToReference", "StylusTipToReference",
                                        "ReferenceToTracker"}));
    ASSERT_TRUE(seen.trackingData);
    EXPECT_EQ(IgtlTest::timestampUS(seen.trackingData->pack), 1700000000200000u);
}

TEST(IgtlServer, ReportsAnAddressOrPortItCannotListenOn) {
    TestSupport::LogCapture log;
    IgtlServer first(loopback());
    ASSERT_TRUE(first.start());
    IgtlServerSettings taken = loopback();
    taken.port = first.port();
    IgtlServerSettings named = loopback();
    named.bindAddress = "localhost";
    std::string error;
    EXPECT_FALSE(IgtlServer(taken).start(&error));
    EXPECT_EQ(error, "OpenIGTLink server cannot listen on 127.0.0.1:" + std::to_string(first.port()) +
                         ": Address already in use");
    EXPECT_TRUE(log->contains(Log::Error, "IgtlServer", error));
    EXPECT_FALSE(IgtlServer(named).start(&error));
    EXPECT_EQ(error, "OpenIGTLink server cannot listen on localhost:0: not an IPv4 address");
}

} // namespace
} // namespace Kestrion::Igtl
