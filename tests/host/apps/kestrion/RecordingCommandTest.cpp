// `kestrion recording`: what it says of a recording, and of files it cannot read.

#include "host/apps/kestrion/RecordingCommand.h"
#include "host/apps/kestrion/CommandContext.h"
#include "recording/RecordingWriter.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <tuple>

using namespace Kestrion;
using namespace Kestrion::Cli;

namespace {

/// The exit status, and what went to the output and the error stream.
std::tuple<int, std::string, std::string> describe(const std::vector<std::string>& arguments) {
    std::ostringstream out, err;
    CommandContext context(out, err, {});
    const int status = RecordingCommand().run(context, arguments);
    return {status, out.str(), err.str()};
}

} // namespace

TEST(RecordingCommand, DescribesTheCameraFramesGeometriesAndOptions) {
    QTemporaryDir dir;
    const std::string file = dir.path().toStdString() + "/s.krec";
    Recording::SessionHeader header;
    header.deviceName = "fTk 500";
    header.serialNumber = 0x46544b3530300001ull;
    header.startedUS = 1795590000000000ull; // 2026-11-25 07:00:00 UTC
    header.options = {
        {2003, "Distance matching tolerance", Recording::OptionValue::Type::Float32, true, 0, 1.5f, ""},
        {60, "Counter of lost frames", Recording::OptionValue::Type::Int32, false, 0, 0.f, ""}};
    header.geometries = {{1000, 1, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, "/m/geometry1000.ini"}};
    Recording::RecordingWriter writer;
    ASSERT_TRUE(writer.open(file, header));
    Recording::Frame frame;
    frame.hasImageHeader = true;
    for (std::uint32_t i = 0; i < 3; ++i) {
        frame.header.counter = 40 + i;
        frame.header.timestampUS = header.startedUS + i * 1500000ull;
        ASSERT_TRUE(writer.write(frame));
        if (i == 1) {
            ASSERT_TRUE(writer.writeGeometry({1001, 1, {{0, 0, 0}, {2, 0, 0}, {0, 2, 0}}, "/m/tool.ini"}));
        }
    }
    ASSERT_TRUE(writer.finish(4)) << writer.error();

    EXPECT_EQ(
        describe({file}),
        std::make_tuple(0,
                        "Recording: " + file +
                            " (format version 3)\n"
                            "Camera: fTk 500, serial 0x46544b3530300001\n"
                            "Began: 2026-11-25 07:00:00 UTC\n"
                            "Images: not recorded\n"
                            "Frames: 3, counters 40 to 42, 3.0 s of device time; 4 dropped by the recorder\n"
                            "Geometries at the start: 1\n"
                            "  1000    4 fiducials  /m/geometry1000.ini\n"
                            "Geometries registered during the recording: 1\n"
                            "  1001    3 fiducials  /m/tool.ini  (before frame 2)\n"
                            "Options: 2\n"
                            "  2003 Distance matching tolerance = 1.5\n"
                            "  60 Counter of lost frames = (not readable)\n",
                        std::string()));

    const std::string foreign = dir.path().toStdString() + "/foreign.krec";
    std::ofstream(foreign) << "PK\x03\x04 not a recording";
    EXPECT_EQ(describe({foreign}),
              std::make_tuple(1, std::string(),
                              "kestrion recording: recording " + foreign +
                                  ": not a recording (no recording signature at its start)\n"));
    EXPECT_EQ(std::get<0>(describe({})), 2);
}
