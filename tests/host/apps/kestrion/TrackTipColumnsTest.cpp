// The tool tip columns of `kestrion track`: the table shows them once a tip was seen, the CSV
// file when a geometry file has a tip (as the plugin owning the format reads it).

#include "host/apps/kestrion/TrackTipColumns.h"
#include "host/apps/kestrion/TrackCsvWriter.h"
#include "host/apps/kestrion/TrackStatistics.h"
#include "host/calibration/ToolTipFileFormats.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingStreamData.h"
#include "tests/support/ScriptedToolTipFileFormat.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>

using namespace Kestrion;
using namespace Kestrion::Cli;

namespace {

/// A pointer with a tip (tracked, or not in the frame) and a reference without one.
TrackingStreamData tipFrame(std::uint64_t arrivalMs, bool tracked) {
    TrackingInstrument pointer(TrackerID("atracsys-1000", "pointer"));
    TrackingInstrument reference(TrackerID("atracsys-1001", "reference"));
    pointer.quality = reference.quality = tracked ? 0.9 : 0.0;
    TrackingStreamData data(nullptr, {pointer, reference}, arrivalMs, arrivalMs);
    if (tracked) {
        auto tips = std::make_shared<InstrumentTipData>();
        tips->entries().push_back({"atracsys-1000", {0, 0, 150}, {12.5, -3.25, 905.5}});
        data.addComponent(tips);
    }
    return data;
}

StreamHealth::Snapshot delivering() {
    StreamHealth::Snapshot snapshot;
    snapshot.state = StreamHealth::State::Delivering;
    return snapshot;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

TEST(TrackTipColumns, TipsAppearInTheTableAndTheCsvFile) {
    TrackStatistics statistics;
    statistics.add(tipFrame(1000, false), nullptr);
    EXPECT_EQ(statistics.table(1000, 1.0, 1.0, delivering()).find("Tip"), std::string::npos)
        << "no tip seen yet";
    statistics.add(tipFrame(1020, true), nullptr);
    statistics.add(tipFrame(1040, false), nullptr);
    const std::string table = statistics.table(2000, 1.0, 1.0, delivering());
    EXPECT_NE(table.find("Last seen  Tip x, y, z [mm]" + std::string(10, ' ') + "  Status\n"),
              std::string::npos)
        << table;
    // Only while tracked, like the pose.
    EXPECT_NE(table.find("ago  -" + std::string(25, ' ') + "\n"), std::string::npos) << table;
    statistics.add(tipFrame(1060, true), nullptr);
    const std::string tracked = statistics.table(2000, 1.0, 1.0, delivering());
    EXPECT_NE(tracked.find("ago  12.50, -3.25, 905.50" + std::string(6, ' ') + "\n"), std::string::npos)
        << tracked;
    EXPECT_NE(tracked.find("ago  -" + std::string(25, ' ') + "\n"), std::string::npos)
        << "the reference has none";

    QTemporaryDir temp;
    const std::string file = temp.filePath("tips.csv").toStdString();
    TrackCsvWriter writer;
    ASSERT_TRUE(writer.open(file, true)) << writer.error();
    EXPECT_TRUE(writer.write(0, tipFrame(1000, true), nullptr));
    EXPECT_TRUE(writer.write(1, tipFrame(1017, false), nullptr));
    ASSERT_TRUE(writer.close()) << writer.error();
    std::ifstream in(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_TRUE(endsWith(lines[0], ",reason,tip_x_mm,tip_y_mm,tip_z_mm")) << lines[0];
    EXPECT_TRUE(endsWith(lines[1], ",,,,12.5000,-3.2500,905.5000")) << lines[1];
    EXPECT_TRUE(endsWith(lines[3], ",,,,,,")) << "untracked: no pose, no status, no tip: " << lines[3];

    // Only geometry files with a tip ask for the CSV columns; without a format for them, none do.
    const std::string with = "with.ini", without = "without.ini";
    EXPECT_FALSE(TrackTipColumns::anyTip({{"a", without}, {"b", with}}));
    auto format = std::make_shared<TestSupport::ScriptedToolTipFileFormat>(".ini");
    format->files[with] = {3u, Eigen::Vector3d(0, 0, 1)};
    format->files[without] = {3u, std::nullopt};
    ToolTipFileFormats::instance().add("Test.Tips", format);
    EXPECT_TRUE(TrackTipColumns::anyTip({{"a", without}, {"b", with}}));
    EXPECT_FALSE(TrackTipColumns::anyTip({{"a", without}, {"c", "missing.ini"}}));
    ToolTipFileFormats::instance().remove("Test.Tips");
}
