#include "host/lib/PluginLoader.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/PluginAutoRegistrationGuard.h"
#include "host/lib/PluginDependencyOrder.h"
#include "host/lib/PluginDescriptor.h"
#include "host/lib/PluginExport.h"
#include "host/lib/WorkspaceConversionRegistry.h"
#include "host/licensing/LicenseService.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>

using namespace Kestrion;

namespace {

const std::string PluginDir = KESTRION_TEST_PLUGIN_DIR;

const PluginRecord* byFile(const PluginLoader& loader, const std::string& fileName) {
    for (const auto& record : loader.records())
        if (record.fileName == fileName)
            return &record;
    return nullptr;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

// The test plugins are checked against the default licence beside the test executables.
class PluginLoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::unsetenv("KESTRION_LICENSE");
        LicenseService::instance().reload();
    }
};

using Order = PluginDependencyOrder;

std::vector<std::string> ids(const std::vector<Order::Node>& nodes, const Order::Result& result) {
    std::vector<std::string> out;
    for (auto i : result.order)
        out.push_back(nodes[i].id);
    return out;
}

} // namespace

TEST_F(PluginLoaderTest, EachBadLibraryIsReportedByFileAndReasonWhileTheOthersLoad) {
    TestSupport::LogCapture capture;
    PluginLoader loader;
    EXPECT_TRUE(loader.load({PluginDir}));

    EXPECT_EQ(loader.records().size(), 12u); // README.txt is not a library name

    const std::vector<std::pair<std::string, std::string>> failures{
        {"libTestPluginBadHostVersion.so", "built for host version 4.3.0, this host is 4.4.6"},
        {"libTestPluginCycleA.so", "dependency cycle: Test.CycleA -> Test.CycleB -> Test.CycleA"},
        {"libTestPluginMissingDependency.so", "missing dependency \"Test.NotThere\""},
        {"libTestPluginNoDescriptor.so", "no plugin descriptor (symbol kestrionPluginDescriptor not found)"},
        {"libTestPluginNoEntryPoint.so", "missing entry point kestrionCreatePlugin"},
    };
    for (const auto& [file, reason] : failures) {
        const PluginRecord* record = byFile(loader, file);
        ASSERT_NE(record, nullptr) << file;
        EXPECT_EQ(record->status, PluginStatus::Failed) << file;
        EXPECT_EQ(record->reason, reason) << file;
        EXPECT_EQ(capture->count(Log::Error, "PluginLoader", "Plugin " + file + " skipped: " + reason), 1u)
            << capture->dump();
    }
    const PluginRecord* notALibrary = byFile(loader, "libTestPluginNotALibrary.so");
    ASSERT_NE(notALibrary, nullptr);
    EXPECT_EQ(notALibrary->reason.rfind("not a loadable library: ", 0), 0u) << notALibrary->reason;

    for (const char* file : {"libTestPluginInactive.so", "libTestPluginUnlicensed.so"}) {
        const PluginRecord* record = byFile(loader, file);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->status, PluginStatus::Inactive) << file;
        EXPECT_NE(record->plugin, nullptr);
        EXPECT_TRUE(capture->contains(Log::Warning, "PluginLoader",
                                      std::string("Plugin ") + file +
                                          " inactive: init() returned 1, the plugin stays inactive"));
    }
    // libTestPluginA_Dependent.so is found first but depends on Test.Base: its init() fails unless
    // Test.Base's algorithm is registered already. Failed plugins never reach init(); inactive ones do.
    const auto initialised = loader.initialised();
    ASSERT_EQ(initialised.size(), 2u);
    EXPECT_EQ(initialised[0]->id, "Test.Base");
    EXPECT_EQ(initialised[1]->id, "Test.Dependent");
    EXPECT_EQ(capture->countContaining("init Test."), 4u) << capture->dump();
    for (const PluginRecord* record : initialised) {
        EXPECT_EQ(record->status, PluginStatus::Active);
        EXPECT_EQ(record->announcedIds, std::vector<std::string>{record->id});
    }

    // Each active plugin registered its factories under its id; the others registered nothing.
    FactoryRegistry& registry = FactoryRegistry::instance();
    EXPECT_EQ(registry.algorithmsOf("Test.Base").at(0).identifier, "TestBase.Recorder");
    EXPECT_EQ(registry.algorithmsOf("Test.Dependent").at(0).identifier, "TestDependent.Recorder");
    EXPECT_EQ(registry.algorithms().size(), 2u);
    EXPECT_EQ(registry.controllerFactoryCount(), 2u);
    EXPECT_EQ(registry.annotationFactories().size(), 2u);
    EXPECT_EQ(WorkspaceConversionRegistry::instance().size(), 1u);
}

TEST_F(PluginLoaderTest, UnloadingRemovesWhatThePluginsRegisteredAndAllowsLoadingAgain) {
    {
        PluginLoader loader;
        loader.load({PluginDir});
        EXPECT_TRUE(contains(PluginAutoRegistrationGuard::announcedIds(), "Test.Base"));
        EXPECT_EQ(FactoryRegistry::instance().algorithms().size(), 2u);
    }
    EXPECT_TRUE(FactoryRegistry::instance().algorithms().empty());
    EXPECT_EQ(FactoryRegistry::instance().controllerFactoryCount(), 0u);
    EXPECT_TRUE(FactoryRegistry::instance().annotationFactories().empty());
    EXPECT_EQ(WorkspaceConversionRegistry::instance().size(), 0u);
    // The libraries were closed: their guards are gone.
    EXPECT_FALSE(contains(PluginAutoRegistrationGuard::announcedIds(), "Test.Base"));

    TestSupport::LogCapture capture;
    PluginLoader loader;
    loader.load({PluginDir});
    EXPECT_EQ(loader.find("Test.Base")->announcedIds, std::vector<std::string>{"Test.Base"});

    // The same folder again through the same loader: every id is taken now.
    loader.load({PluginDir});
    EXPECT_EQ(loader.records().size(), 24u);
    EXPECT_EQ(loader.records()[13].reason,
              "plugin id \"Test.Base\" is already provided by libTestPluginB_Base.so");
    EXPECT_EQ(FactoryRegistry::instance().algorithms().size(), 2u);
}

TEST_F(PluginLoaderTest, PluginFoldersComeFromTheEnvironmentOrBesideTheExecutable) {
    ::unsetenv("KESTRION_PLUGIN_PATH");
    EXPECT_EQ(PluginLoader::defaultFolders(),
              std::vector<std::string>{std::string(KESTRION_BINARY_DIR) + "/bin/plugins"});
    ::setenv("KESTRION_PLUGIN_PATH", "/a/b::/c", 1);
    EXPECT_EQ(PluginLoader::defaultFolders(), (std::vector<std::string>{"/a/b", "/c"}));
    ::unsetenv("KESTRION_PLUGIN_PATH");

    TestSupport::LogCapture capture;
    PluginLoader loader;
    const std::string missing = PluginDir + "/does-not-exist";
    const std::string file = PluginDir + "/README.txt";
    EXPECT_FALSE(loader.load({missing, PluginDir, file}));
    EXPECT_TRUE(
        capture->contains(Log::Error, "PluginLoader", "Plugin folder " + missing + " does not exist"));
    EXPECT_TRUE(capture->contains(Log::Error, "PluginLoader", "Plugin folder " + file + " is not a folder"));
    // The folder that exists is loaded all the same.
    EXPECT_EQ(loader.initialised().size(), 2u);
}

TEST(PluginDescriptor, AcceptsAnyFieldOrderAndExplainsWhatItRefuses) {
    const auto other = PluginDescriptor::parse(
        "__KESTRION_PLUGIN_V2_MAGIC_STRING__|pluginversion=2.1|extra=a=b|buildflags=|hostversion=4.4.6");
    ASSERT_TRUE(other.has_value());
    EXPECT_EQ(other->fields.at("extra"), "a=b");
    EXPECT_EQ(other->incompatibility(), ""); // build flags are not judged

    const std::vector<std::pair<std::string, std::string>> incompatible{
        {KESTRION_PLUGIN_DESCRIPTOR, ""},
        {"", "wrong magic string \"\" (expected \"__KESTRION_PLUGIN_V2_MAGIC_STRING__\")"},
        {"__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=4.4.6.1",
         "built for host version 4.4.6.1, this host is 4.4.6"},
        {"__KESTRION_PLUGIN_V2_MAGIC_STRING__|buildflags=x", "plugin descriptor names no host version"},
    };
    for (const auto& [text, reason] : incompatible) {
        std::string error;
        const auto descriptor = PluginDescriptor::parse(text.c_str(), &error);
        ASSERT_TRUE(descriptor.has_value()) << error;
        EXPECT_EQ(descriptor->incompatibility(), reason);
    }

    const std::string overlong(PluginDescriptor::MaxLength + 1, 'a');
    const std::vector<std::pair<const char*, std::string>> malformed{
        {nullptr, "plugin descriptor is a null pointer"},
        {"__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=4.4.6|junk",
         "malformed plugin descriptor field \"junk\""},
        {overlong.c_str(), "plugin descriptor is longer than 4096 characters"},
    };
    for (const auto& [text, message] : malformed) {
        std::string error;
        EXPECT_FALSE(PluginDescriptor::parse(text, &error).has_value());
        EXPECT_EQ(error, message);
    }
}

TEST(PluginDependencyOrder, MissingDependenciesAndCyclesFailOnlyThePluginsConcerned) {
    const std::vector<Order::Node> nodes{{"Good", {"Kestrion.Stream"}},
                                         {"NeedsGhost", {"Ghost"}},
                                         {"BehindGhost", {"NeedsGhost"}},
                                         {"CycleA", {"CycleB"}},
                                         {"CycleB", {"CycleC"}},
                                         {"CycleC", {"CycleA"}},
                                         {"Self", {"Self"}},
                                         {"BehindCycle", {"CycleB"}},
                                         {"AfterGood", {"Good"}}};
    const auto result = Order::compute(nodes, {"Kestrion.Stream"});
    EXPECT_EQ(ids(nodes, result), (std::vector<std::string>{"Good", "AfterGood"}));
    EXPECT_EQ(result.failures, (std::map<std::size_t, std::string>{
                                   {1, "missing dependency \"Ghost\""},
                                   {2, "dependency \"NeedsGhost\" cannot be loaded"},
                                   {3, "dependency cycle: CycleA -> CycleB -> CycleC -> CycleA"},
                                   {4, "dependency cycle: CycleB -> CycleC -> CycleA -> CycleB"},
                                   {5, "dependency cycle: CycleC -> CycleA -> CycleB -> CycleC"},
                                   {6, "dependency cycle: Self -> Self"},
                                   {7, "dependency \"CycleB\" cannot be loaded"},
                               }));
}
