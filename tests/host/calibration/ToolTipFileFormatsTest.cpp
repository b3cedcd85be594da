// The registry through which the host reads and writes tool tips in geometry files it does not
// know the format of: the plugins that own the formats add them and take them back.

#include "host/calibration/ToolTipFileFormats.h"
#include "tests/support/ScriptedToolTipFileFormat.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using TestSupport::ScriptedToolTipFileFormat;

TEST(ToolTipFileFormats, TheFirstFormatClaimingAFileServesItUntilItsOwnerTakesItBack) {
    ToolTipFileFormats& formats = ToolTipFileFormats::instance();
    auto ini = std::make_shared<ScriptedToolTipFileFormat>(".ini");
    auto anyIni = std::make_shared<ScriptedToolTipFileFormat>("i");
    auto json = std::make_shared<ScriptedToolTipFileFormat>(".json");
    ini->files["/tools/probe.ini"] = {5u, Eigen::Vector3d(0, 0, 150)};
    EXPECT_EQ(formats.formatOf("/tools/probe.ini"), nullptr) << "nothing added yet";

    formats.add("Test.Ini", ini);
    formats.add("Test.Json", json);
    formats.add("Test.AnyIni", anyIni);
    EXPECT_EQ(formats.formatOf("/tools/probe.ini"), ini) << "the first added of two claiming formats";
    EXPECT_EQ(formats.formatOf("/tools/probe.json"), json);
    EXPECT_EQ(formats.formatOf("/tools/probe.txt"), nullptr);

    // The host reads and writes through the format it was given.
    std::string error;
    const auto format = formats.formatOf("/tools/probe.ini");
    ASSERT_TRUE(format->saveTip("/tools/probe.ini", Eigen::Vector3d(1, 2, 3), error)) << error;
    EXPECT_EQ(format->read("/tools/probe.ini", error)->tip, Eigen::Vector3d(1, 2, 3));

    // An owner adding again replaces its format in its place; removing takes back only its own.
    auto newerIni = std::make_shared<ScriptedToolTipFileFormat>(".ini");
    formats.add("Test.Ini", newerIni);
    EXPECT_EQ(formats.formatOf("/tools/probe.ini"), newerIni);
    formats.remove("Test.Ini");
    EXPECT_EQ(formats.formatOf("/tools/probe.ini"), anyIni);
    EXPECT_EQ(formats.formatOf("/tools/probe.json"), json);
    formats.remove("Test.AnyIni");
    formats.remove("Test.Json");
    EXPECT_EQ(formats.formatOf("/tools/probe.json"), nullptr);
}
