// The tracking sequence file: the MetaImage sequence fields per frame and instrument, the frame
// count written at the end, and the file appearing only when complete.

#include "host/apps/kestrion/TrackSequenceWriter.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/TrackingStreamData.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace Kestrion;
using namespace Kestrion::Cli;

namespace {

TrackingStreamData poses(std::uint64_t arrivalMs, bool toolTracked) {
    TrackingInstrument tool(TrackerID("atracsys-1000", "tool"));
    if (toolTracked) {
        tool.matrix(0, 1) = -1.0;
        tool.matrix(1, 0) = 1.0;
        tool.matrix(0, 0) = tool.matrix(1, 1) = 0.0;
        tool.matrix(0, 3) = 1.5;
        tool.matrix(2, 3) = 800.25;
        tool.quality = 0.9;
    }
    TrackingInstrument other(TrackerID("my tool=7", "other"));
    return TrackingStreamData(nullptr, {tool, other}, arrivalMs, arrivalMs);
}

std::string content(const std::string& file) {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace

TEST(TrackSequenceWriter, WritesEveryFrameAndInstrumentAndAppearsWhenComplete) {
    QTemporaryDir temp;
    const std::string file = temp.path().toStdString() + "/poses.igs.mha";
    TrackSequenceWriter writer;
    ASSERT_TRUE(writer.open(file)) << writer.error();
    const DeviceFrameInfo first("sTk 180", 1, 41, 5000000);
    const DeviceFrameInfo second("sTk 180", 1, 43, 5037037);
    EXPECT_TRUE(writer.write(0, poses(1000, true), &first));
    EXPECT_TRUE(writer.write(1, poses(1017, false), &second));
    EXPECT_FALSE(std::filesystem::exists(file));
    ASSERT_TRUE(writer.close()) << writer.error();
    EXPECT_FALSE(std::filesystem::exists(file + ".part"));
    EXPECT_EQ(content(file),
              "ObjectType = Image\n"
              "NDims = 3\n"
              "DimSize = 0 0 0000000002\n"
              "AnatomicalOrientation = RAI\n"
              "BinaryData = True\n"
              "BinaryDataByteOrderMSB = False\n"
              "CompressedData = False\n"
              "ElementSpacing = 1 1 1\n"
              "Offset = 0 0 0\n"
              "TransformMatrix = 1 0 0 0 1 0 0 0 1\n"
              "ElementType = MET_UCHAR\n"
              "Kinds = domain domain list\n"
              "Seq_Frame0000_FrameNumber = 0\n"
              "Seq_Frame0000_Timestamp = 0.000000\n"
              "Seq_Frame0000_atracsys-1000ToTrackerTransform = 0 -1 0 1.5 1 0 0 0 0 0 1 800.25 0 0 0 1\n"
              "Seq_Frame0000_atracsys-1000ToTrackerTransformStatus = OK\n"
              "Seq_Frame0000_my-tool-7ToTrackerTransform = 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n"
              "Seq_Frame0000_my-tool-7ToTrackerTransformStatus = INVALID\n"
              "Seq_Frame0000_ImageStatus = INVALID\n"
              "Seq_Frame0001_FrameNumber = 1\n"
              "Seq_Frame0001_Timestamp = 0.037037\n"
              "Seq_Frame0001_atracsys-1000ToTrackerTransform = 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n"
              "Seq_Frame0001_atracsys-1000ToTrackerTransformStatus = INVALID\n"
              "Seq_Frame0001_my-tool-7ToTrackerTransform = 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n"
              "Seq_Frame0001_my-tool-7ToTrackerTransformStatus = INVALID\n"
              "Seq_Frame0001_ImageStatus = INVALID\n"
              "ElementDataFile = LOCAL\n");

    // A run that never began leaves nothing; a ".part" file in the way is not replaced.
    TrackSequenceWriter unused;
    ASSERT_TRUE(unused.open(file + "2"));
    unused.discard();
    EXPECT_FALSE(std::filesystem::exists(file + "2.part"));
    std::ofstream(file + "3.part") << "someone else's";
    TrackSequenceWriter blocked;
    EXPECT_FALSE(blocked.open(file + "3"));
    EXPECT_EQ(blocked.error(), "sequence file " + file + "3: cannot create " + file + "3.part: File exists");
}
