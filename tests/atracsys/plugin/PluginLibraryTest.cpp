// The plugin library as the host loads it, under a licence with and without the feature.

#include "host/calibration/ToolTipFileFormats.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/PluginLoader.h"
#include "host/lib/WorkspaceConversionRegistry.h"
#include "host/licensing/LicenseService.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

using namespace Kestrion;

namespace {

const std::string PluginFolder = KESTRION_PLUGIN_FOLDER;
const std::string PluginId = "Kestrion.AtracsysTrackingSpryTrack";

/// Points KESTRION_LICENSE at a test licence for the lifetime of the object.
class LicenseGuard {
public:
    explicit LicenseGuard(const std::string& file) {
        ::setenv("KESTRION_LICENSE", (std::string(KESTRION_TEST_DATA_DIR) + "/plugin/" + file).c_str(), 1);
        LicenseService::instance().reload();
    }
    ~LicenseGuard() {
        ::unsetenv("KESTRION_LICENSE");
        LicenseService::instance().reload();
    }
};

bool hasConversion(const std::string& description) {
    const auto all = WorkspaceConversionRegistry::instance().conversions();
    return std::any_of(all.begin(), all.end(), [&](const WorkspaceConversion& c) {
        return c.description == description && c.order == 34 && c.convert;
    });
}

} // namespace

TEST(PluginLibrary, AnUnlicensedPluginStaysInactiveAndRegistersNothing) {
    TestSupport::LogCapture capture;
    LicenseGuard licence("without-atracsys.lic");
    const std::size_t conversionsBefore = WorkspaceConversionRegistry::instance().size();
    PluginLoader loader;
    ASSERT_TRUE(loader.load({PluginFolder}));
    const PluginRecord* record = loader.find(PluginId);
    ASSERT_NE(record, nullptr) << capture->dump();
    EXPECT_EQ(record->status, PluginStatus::Inactive);
    EXPECT_FALSE(FactoryRegistry::instance().hasAlgorithm("Atracsys.SpryTrackStream"));
    EXPECT_EQ(WorkspaceConversionRegistry::instance().size(), conversionsBefore);
    EXPECT_EQ(ToolTipFileFormats::instance().formatOf("tool.ini"), nullptr);
    EXPECT_TRUE(capture->contains(Log::Info, "Licensing", "Feature \"Atracsys\" is not licensed"))
        << capture->dump();
    EXPECT_TRUE(capture->contains(Log::Warning, "PluginLoader",
                                  "Plugin libAtracsysTrackingSpryTrack.so inactive: init() returned 1, the "
                                  "plugin stays inactive"))
        << capture->dump();
}

TEST(PluginLibrary, ALicensedPluginRegistersItsAlgorithmAndConversionUntilUnloaded) {
    TestSupport::LogCapture capture;
    LicenseGuard licence("with-atracsys.lic");
    const std::string description = "Renamed Atracsys tracking stream to standardized naming scheme";
    const std::size_t controllerFactories = FactoryRegistry::instance().controllerFactoryCount();
    {
        PluginLoader loader;
        ASSERT_TRUE(loader.load({PluginFolder}));
        const PluginRecord* record = loader.find(PluginId);
        ASSERT_NE(record, nullptr) << capture->dump();
        EXPECT_EQ(record->status, PluginStatus::Active) << record->reason;
        // What the library exports, as the loader read it.
        EXPECT_EQ("__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=" + record->hostVersion +
                      "|buildflags=" + record->buildFlags + "|pluginversion=" + record->pluginVersion,
                  "__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=4.4.6|buildflags=GLIBCXX_DEBUG:"
                  "_GLIBCXX_DEBUG|pluginversion=");
        EXPECT_EQ(record->description, "Plugin for real-time streaming Atracsys tracking systems");
        EXPECT_EQ(record->dependencies, std::vector<std::string>{"Kestrion.Stream"});
        EXPECT_TRUE(capture->contains(Log::Info, "PluginLoader",
                                      "Loaded plugin Kestrion.AtracsysTrackingSpryTrack from "
                                      "libAtracsysTrackingSpryTrack.so"))
            << capture->dump();

        const auto algorithms = FactoryRegistry::instance().algorithmsOf(PluginId);
        ASSERT_EQ(algorithms.size(), 1u);
        EXPECT_EQ(algorithms[0].identifier, "Atracsys.SpryTrackStream");
        EXPECT_EQ(algorithms[0].guiPath, "IO;Atracsys Tracking;SpryTrack");
        EXPECT_TRUE(hasConversion(description));
        EXPECT_EQ(FactoryRegistry::instance().controllerFactoryCount(), controllerFactories + 1);

        // Created by identifier; it takes no input data.
        EXPECT_NE(FactoryRegistry::instance().createAlgorithm("Atracsys.SpryTrackStream"), nullptr);
        DataList input{std::make_shared<Data>("an image")};
        EXPECT_EQ(FactoryRegistry::instance().createAlgorithm("Atracsys.SpryTrackStream", input), nullptr);

        // Its geometry files, offered to the host for tool tips; the plugin's resources too.
        const auto format = ToolTipFileFormats::instance().formatOf(":/markers/geometry1000.ini");
        ASSERT_NE(format, nullptr);
        std::string error;
        const auto facts = format->read(":/markers/geometry1000.ini", error);
        ASSERT_TRUE(facts) << error;
        EXPECT_EQ(facts->fiducials, 4u);
        EXPECT_FALSE(facts->tip);
    }
    EXPECT_EQ(ToolTipFileFormats::instance().formatOf(":/markers/geometry1000.ini"), nullptr);
    EXPECT_FALSE(FactoryRegistry::instance().hasAlgorithm("Atracsys.SpryTrackStream"));
    EXPECT_FALSE(hasConversion(description));
    EXPECT_EQ(FactoryRegistry::instance().controllerFactoryCount(), controllerFactories);
}
