// The messages the OpenIGTLink server packs for a frame, unpacked again with the library, and the
// reading of what clients send, whole and in pieces.
#include "IgtlTestClient.h"

#include "host/igtl/IgtlFrameEncoder.h"
#include "host/igtl/IgtlMessageReader.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"

#include <gtest/gtest.h>
#include <igtl_util.h>

#include <cstring>
#include <string>
#include <vector>

namespace Kestrion::Igtl {
namespace {

using IgtlTest::packed;
using IgtlTest::startContent;
using IgtlTest::version2;
using Bytes = std::vector<std::uint8_t>;

TrackingInstrument instrument(const std::string& id, double quality, double x) {
    TrackingInstrument result{TrackerID(id, id)};
    result.quality = quality;
    result.matrix.block<3, 3>(0, 0) << 0, -1, 0, 1, 0, 0, 0, 0, 1;
    result.matrix.block<3, 1>(0, 3) << x, -20.5, 750.25;
    return result;
}

/// The messages packed one after the other in `bytes`, each as its header and the whole pack.
struct Unpacked {
    std::string type, name;
    std::uint64_t timestampUS;
    Bytes pack;
};
std::vector<Unpacked> split(const Bytes& bytes) {
    std::vector<Unpacked> result;
    for (std::size_t at = 0; at < bytes.size();) {
        auto header = igtl::MessageHeader::New();
        header->InitPack();
        std::memcpy(header->GetPackPointer(), bytes.data() + at, IgtlMessageReader::HeaderSize);
        header->Unpack();
        const std::size_t size = IgtlMessageReader::HeaderSize + header->GetBodySizeToRead();
        const Bytes pack(bytes.begin() + at, bytes.begin() + at + size);
        result.push_back(
            {header->GetDeviceType(), header->GetDeviceName(), IgtlTest::timestampUS(pack), pack});
        at += size;
    }
    return result;
}
template <class M>
typename M::Pointer unpack(const Bytes& pack) {
    auto message = IgtlTest::unpackAs<M>(pack);
    EXPECT_TRUE(message);
    return message ? message : M::New();
}

TEST(IgtlFrameEncoder, PacksTrackedInstrumentsTipsFiducialsAndTransitions) {
    TrackingStreamData frame(nullptr,
                             {instrument("atracsys-1000", 0.9, 12.125), instrument("atracsys-1001", 0.0, 0),
                              instrument("atracsys-1002", 0.5, -3.5)},
                             1700000000123, 1700000000999);
    // The capture time, to the microsecond, is every message's time; not the arrival, nor the
    // device's own clock.
    frame.addComponent(std::make_shared<CaptureTimeData>(1700000000101234ull, 55000000));
    auto tips = std::make_shared<InstrumentTipData>();
    tips->entries().push_back({"atracsys-1002", {0, 0, 100}, {1.5, 2.5, 850.75}});
    frame.addComponent(tips);
    auto fiducials = std::make_shared<TrackingInstrumentFiducialsData>();
    fiducials->addFiducial({1, 2, 3}, 0, 0, 1, 0, 0, 10, 10);
    fiducials->addFiducial({4, 5, 6}, 0, TrackingInstrumentFiducialsData::NoInstrument, 1, 0, 0, 10, 10);
    frame.addComponent(fiducials);

    IgtlFrameEncoder encoder;
    IgtlEncodedFrame out;
    encoder.encode(frame, out);
    const auto poses = split(*out.poses);
    ASSERT_EQ(poses.size(), 4u);
    EXPECT_EQ(out.poseMessages, 4u);
    const char* names[] = {"atracsys-1000", "atracsys-1002", "atracsys-1002-tip", "fiducials"};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(poses[i].name, names[i]);
        EXPECT_EQ(poses[i].timestampUS, 1700000000101234u);
    }
    igtl::Matrix4x4 m;
    unpack<igtl::TransformMessage>(poses[0].pack)->GetMatrix(m);
    EXPECT_FLOAT_EQ(m[0][1], -1.0f);
    EXPECT_FLOAT_EQ(m[1][0], 1.0f);
    EXPECT_FLOAT_EQ(m[0][3], 12.125f);
    EXPECT_FLOAT_EQ(m[2][3], 750.25f);
    unpack<igtl::TransformMessage>(poses[2].pack)->GetMatrix(m); // the tip: rotation kept
    EXPECT_FLOAT_EQ(m[0][1], -1.0f);
    EXPECT_FLOAT_EQ(m[2][3], 850.75f);
    auto points = unpack<igtl::PointMessage>(poses[3].pack);
    ASSERT_EQ(points->GetNumberOfPointElement(), 2);
    igtl::PointElement::Pointer point;
    points->GetPointElement(0, point);
    EXPECT_STREQ(point->GetGroupName(), "atracsys-1000");
    points->GetPointElement(1, point);
    EXPECT_STREQ(point->GetGroupName(), "stray");

    auto tdata = unpack<igtl::TrackingDataMessage>(*out.trackingData);
    EXPECT_EQ(split(*out.trackingData)[0].timestampUS, 1700000000101234u);
    EXPECT_EQ(out.timestampMs, 1700000000101u);
    ASSERT_EQ(tdata->GetNumberOfTrackingDataElements(), 2); // the untracked one is left out
    igtl::TrackingDataElement::Pointer element;
    tdata->GetTrackingDataElement(1, element);
    EXPECT_STREQ(element->GetName(), "atracsys-1002");

    // First frame: every instrument's status; the same again: none; one lost: its own.
    ASSERT_EQ(out.statuses.size(), 3u);
    auto lost = unpack<igtl::StatusMessage>(*out.statuses[1]);
    EXPECT_STREQ(lost->GetDeviceName(), "atracsys-1001");
    EXPECT_EQ(lost->GetCode(), igtl::StatusMessage::STATUS_NOT_FOUND);
    EXPECT_STREQ(lost->GetStatusString(), "not tracked");
    encoder.encode(frame, out);
    EXPECT_TRUE(out.statuses.empty());

    TrackingStreamData later(nullptr, {instrument("atracsys-1000", 0.0, 0)}, 1700000000200, 0);
    auto reasons = std::make_shared<InstrumentStatusData>();
    reasons->entries().push_back(
        {"atracsys-1000", InstrumentStatusData::State::PartlySeen, "fiducials 2, 3 of 4 found; 1 missing"});
    later.addComponent(reasons);
    encoder.encode(later, out);
    EXPECT_FALSE(out.trackingData);
    ASSERT_EQ(out.statuses.size(), 1u);
    auto why = unpack<igtl::StatusMessage>(*out.statuses[0]);
    EXPECT_EQ(why->GetSubCode(), static_cast<int>(InstrumentStatusData::State::PartlySeen));
    EXPECT_STREQ(why->GetErrorName(), "partly seen");
    EXPECT_STREQ(why->GetStatusString(), "fiducials 2, 3 of 4 found; 1 missing");
    EXPECT_EQ(split(*out.statuses[0])[0].timestampUS, 1700000000200000u); // no capture time: arrival
    std::vector<Packet> current;
    encoder.instrumentStatuses(current);
    EXPECT_EQ(current.size(), 3u);
}

TEST(IgtlFrameEncoder, CameraWithoutFramesTurnsEveryInstrumentToNotTrackedUntilFramesReturn) {
    IgtlFrameEncoder encoder;
    IgtlEncodedFrame out;
    const TrackingStreamData frame(
        nullptr, {instrument("atracsys-1000", 0.9, 1), instrument("atracsys-1001", 0, 2)}, 1700000000000, 0);
    encoder.encode(frame, out);
    ASSERT_EQ(out.statuses.size(), 2u);

    std::vector<Packet> untracked;
    encoder.untrackInstruments(IgtlFrameEncoder::cameraStatusText(CameraState::NoFrames), 1700000001000,
                               untracked);
    ASSERT_EQ(untracked.size(), 2u); // the one not tracked before is told why now
    for (const Packet& packet : untracked) {
        auto status = unpack<igtl::StatusMessage>(*packet);
        EXPECT_EQ(status->GetCode(), igtl::StatusMessage::STATUS_NOT_FOUND);
        EXPECT_STREQ(status->GetErrorName(), "not tracked");
        EXPECT_STREQ(status->GetStatusString(), "camera not delivering frames");
    }
    std::vector<Packet> current;
    encoder.instrumentStatuses(current); // what a client connecting now hears
    EXPECT_STREQ(unpack<igtl::StatusMessage>(*current[0])->GetStatusString(), "camera not delivering frames");
    untracked.clear();
    encoder.untrackInstruments("camera not delivering frames", 1700000001050, untracked);
    EXPECT_TRUE(untracked.empty());
    encoder.untrackInstruments("stream closed", 1700000001100, untracked);
    EXPECT_EQ(untracked.size(), 2u);

    // Frames again: each instrument's own state, also the one whose code did not change.
    encoder.encode(frame, out);
    ASSERT_EQ(out.statuses.size(), 2u);
    EXPECT_EQ(unpack<igtl::StatusMessage>(*out.statuses[0])->GetCode(), igtl::StatusMessage::STATUS_OK);
    EXPECT_STREQ(unpack<igtl::StatusMessage>(*out.statuses[1])->GetStatusString(), "not tracked");
    encoder.encode(frame, out);
    EXPECT_TRUE(out.statuses.empty());
}

TEST(IgtlFrameEncoder, LongNamesFitTheProtocolAndStayDistinct) {
    EXPECT_EQ(IgtlFrameEncoder::deviceName("atracsys-1000-tip"), "atracsys-1000-tip");
    const std::string a = IgtlFrameEncoder::deviceName("a-very-long-instrument-name-1");
    const std::string b = IgtlFrameEncoder::deviceName("a-very-long-instrument-name-2");
    EXPECT_EQ(a.size(), 20u);
    EXPECT_EQ(a.substr(0, 12), "a-very-long~");
    EXPECT_NE(a, b);
    EXPECT_EQ(a, IgtlFrameEncoder::deviceName("a-very-long-instrument-name-1"));
}

Bytes startRequest(int resolutionMs) {
    auto start = igtl::StartTrackingDataMessage::New();
    start->SetDeviceName("client");
    start->SetResolution(resolutionMs);
    return packed(start);
}

TEST(IgtlMessageReader, ReadsRequestsInAnyPiecesAndSkipsOtherMessages) {
    Bytes input = startRequest(50);
    auto transform = igtl::TransformMessage::New();
    const Bytes other = packed(transform);
    input.insert(input.end(), other.begin(), other.end());
    const Bytes stop = packed(igtl::StopTrackingDataMessage::New());
    input.insert(input.end(), stop.begin(), stop.end());

    for (std::size_t piece : {input.size(), std::size_t(1), std::size_t(7)}) {
        IgtlMessageReader reader;
        std::vector<IgtlMessageReader::Request> requests;
        for (std::size_t at = 0; at < input.size(); at += piece)
            ASSERT_TRUE(reader.read(input.data() + at, std::min(piece, input.size() - at), requests));
        ASSERT_EQ(requests.size(), 2u);
        EXPECT_EQ(requests[0].kind, IgtlMessageReader::Request::Kind::StartTrackingData);
        EXPECT_EQ(requests[0].resolutionMs, 50);
        EXPECT_EQ(requests[1].kind, IgtlMessageReader::Request::Kind::StopTrackingData);
        EXPECT_EQ(reader.skippedMessages(), 1u);
        EXPECT_FALSE(reader.insideMessage());
    }
}

TEST(IgtlMessageReader, RefusesBrokenInput) {
    Bytes corrupted = startRequest(10);
    corrupted.back() ^= 0x40; // body changed after packing
    Bytes large = packed(igtl::TransformMessage::New());
    Bytes badVersion = startRequest(10);
    badVersion[0] = 0x47;
    Bytes shortBody = packed(igtl::StopTrackingDataMessage::New());
    std::memcpy(shortBody.data() + 2, "STT_TDATA\0\0\0", 12);
    const struct {
        Bytes input;
        const char* error;
    } cases[] = {
        {corrupted, "CRC mismatch in STT_TDATA message"},
        {large, "message body of 48 bytes over the limit of 40"},
        {badVersion, "unsupported header version 18177"},
        {shortBody, "malformed STT_TDATA message: body of 0 bytes instead of 36"},
    };
    for (const auto& c : cases) {
        IgtlMessageReader reader(40);
        std::vector<IgtlMessageReader::Request> requests;
        EXPECT_FALSE(reader.read(c.input.data(), c.input.size(), requests));
        EXPECT_EQ(reader.error(), c.error);
        EXPECT_TRUE(requests.empty());
    }
}

TEST(IgtlMessageReader, ReadsVersion2MessagesSkippingExtendedHeaderAndMetadata) {
    const std::vector<std::pair<std::string, std::string>> slicer = {{"ConnectorName", "KestrionLink"},
                                                                     {"StatusComment", ""}};
    Bytes input = version2("STATUS", Bytes(30, 0), slicer); // not a request: skipped
    for (const Bytes& message :
         {version2("STT_TDATA", startContent(40), slicer), version2("GET_STATUS", {}, {}),
          version2("STP_TDATA", {}, {{"Key", "Value"}}, 16)})
        input.insert(input.end(), message.begin(), message.end());
    const Bytes v1 = startRequest(25); // version 1 after version 2 on the same connection
    input.insert(input.end(), v1.begin(), v1.end());

    for (std::size_t piece : {input.size(), std::size_t(1), std::size_t(5)}) {
        IgtlMessageReader reader;
        std::vector<IgtlMessageReader::Request> requests;
        for (std::size_t at = 0; at < input.size(); at += piece)
            ASSERT_TRUE(reader.read(input.data() + at, std::min(piece, input.size() - at), requests))
                << reader.error();
        ASSERT_EQ(requests.size(), 4u);
        EXPECT_EQ(requests[0].kind, IgtlMessageReader::Request::Kind::StartTrackingData);
        EXPECT_EQ(requests[0].resolutionMs, 40);
        EXPECT_EQ(requests[0].coordinateName, "Reference");
        EXPECT_EQ(requests[1].kind, IgtlMessageReader::Request::Kind::GetStatus);
        EXPECT_EQ(requests[2].kind, IgtlMessageReader::Request::Kind::StopTrackingData);
        EXPECT_EQ(requests[3].resolutionMs, 25);
        EXPECT_EQ(reader.skippedMessages(), 1u);
    }
}

/// The message with one byte of its body changed and its CRC made to match again.
Bytes resealed(Bytes message, std::size_t bodyOffset, std::uint8_t value) {
    message[58 + bodyOffset] = value;
    const std::uint64_t crc = crc64(message.data() + 58, message.size() - 58, 0);
    for (int i = 0; i < 8; ++i)
        message[50 + i] = static_cast<std::uint8_t>(crc >> (8 * (7 - i)));
    return message;
}

TEST(IgtlMessageReader, RefusesBrokenVersion2Requests) {
    Bytes metadataChanged = version2("STT_TDATA", startContent(10), {{"Key", "Value"}});
    metadataChanged.back() ^= 0x01; // the CRC covers the metadata too
    const struct {
        Bytes input;
        const char* error;
    } cases[] = {
        {metadataChanged, "CRC mismatch in STT_TDATA message"},
        {version2("GET_STATUS", Bytes(4, 0), {}),
         "malformed GET_STATUS message: content of 4 bytes instead of 0"},
        {version2("STT_TDATA", Bytes(8, 0), {{"k", "v"}}),
         "malformed STT_TDATA message: content of 8 bytes instead of 36"},
        {version2("STP_TDATA", {}, {}, 0),
         "malformed STP_TDATA message: body of 2 bytes, shorter than its extended header"},
        // The low byte of the metadata size: 100 bytes announced.
        {resealed(version2("STT_TDATA", startContent(10), {}), 7, 100),
         "malformed STT_TDATA message: extended header of 12 bytes and metadata of 102 bytes in a body of "
         "50"},
        // The low byte of the extended header's size: 4, less than its own fields.
        {resealed(version2("STP_TDATA", {}, {{"Key", "Value"}}), 1, 4),
         "malformed STP_TDATA message: extended header of 4 bytes and metadata of 18 bytes in a body of 30"},
    };
    for (const auto& c : cases) {
        IgtlMessageReader reader;
        std::vector<IgtlMessageReader::Request> requests;
        EXPECT_FALSE(reader.read(c.input.data(), c.input.size(), requests));
        EXPECT_EQ(reader.error(), c.error);
        EXPECT_TRUE(requests.empty());
    }
}

} // namespace
} // namespace Kestrion::Igtl
