#include "host/lib/PluginDescriptor.h"
#include "host/lib/PluginDependencyOrder.h"
#include "host/lib/PluginExport.h"

#include <gtest/gtest.h>

using namespace Kestrion;

namespace {

std::string incompatibility(const char* text) {
    std::string error;
    const auto descriptor = PluginDescriptor::parse(text, &error);
    EXPECT_TRUE(descriptor.has_value()) << error;
    return descriptor ? descriptor->incompatibility() : "unparsed";
}

std::string parseError(const char* text) {
    std::string error;
    EXPECT_FALSE(PluginDescriptor::parse(text, &error).has_value());
    return error;
}

using Order = PluginDependencyOrder;

std::vector<std::string> ids(const std::vector<Order::Node>& nodes, const Order::Result& result) {
    std::vector<std::string> out;
    for (auto i : result.order)
        out.push_back(nodes[i].id);
    return out;
}

} // namespace

TEST(PluginDescriptor, TheStandardDescriptorIsAcceptedAndItsFieldsRecorded) {
    const auto descriptor = PluginDescriptor::parse(KESTRION_PLUGIN_DESCRIPTOR);
    ASSERT_TRUE(descriptor.has_value());
    EXPECT_EQ(descriptor->magic, "__KESTRION_PLUGIN_V2_MAGIC_STRING__");
    EXPECT_EQ(descriptor->hostVersion, "4.4.6");
    EXPECT_EQ(descriptor->buildFlags, "GLIBCXX_DEBUG:_GLIBCXX_DEBUG");
    EXPECT_EQ(descriptor->pluginVersion, "");
    EXPECT_EQ(descriptor->fields.size(), 3u);
    EXPECT_EQ(descriptor->incompatibility(), "");

    // Field order does not matter, unknown keys are kept, build flags are not judged.
    const auto other = PluginDescriptor::parse(
        "__KESTRION_PLUGIN_V2_MAGIC_STRING__|pluginversion=2.1|extra=a=b|buildflags=|hostversion=4.4.6");
    ASSERT_TRUE(other.has_value());
    EXPECT_EQ(other->pluginVersion, "2.1");
    EXPECT_EQ(other->fields.at("extra"), "a=b");
    EXPECT_EQ(other->buildFlags, "");
    EXPECT_EQ(other->incompatibility(), "");
}

// The plugin loader's tests load libraries with an older magic string and an older host version.
TEST(PluginDescriptor, WrongMagicOrHostVersionIsExplained) {
    EXPECT_EQ(incompatibility(""),
              "wrong magic string \"\" (expected \"__KESTRION_PLUGIN_V2_MAGIC_STRING__\")");
    EXPECT_EQ(incompatibility("__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=4.4.6.1"),
              "built for host version 4.4.6.1, this host is 4.4.6");
    EXPECT_EQ(incompatibility("__KESTRION_PLUGIN_V2_MAGIC_STRING__|buildflags=x"),
              "plugin descriptor names no host version");
    // Long garbage is cut in the reason.
    const std::string garbage(300, 'x');
    const std::string reason = incompatibility(garbage.c_str());
    EXPECT_LT(reason.size(), 200u);
    EXPECT_NE(reason.find("xxx...\""), std::string::npos);

    EXPECT_EQ(parseError(nullptr), "plugin descriptor is a null pointer");
    EXPECT_EQ(parseError("__KESTRION_PLUGIN_V2_MAGIC_STRING__|hostversion=4.4.6|junk"),
              "malformed plugin descriptor field \"junk\"");
    const std::string overlong(PluginDescriptor::MaxLength + 1, 'a');
    EXPECT_EQ(parseError(overlong.c_str()), "plugin descriptor is longer than 4096 characters");
}

TEST(PluginDependencyOrder, DependenciesComeFirstOtherwiseInputOrderIsKept) {
    const std::vector<Order::Node> nodes{
        {"D", {"C", "Kestrion.Stream"}}, {"A", {}}, {"C", {"B", "A"}}, {"B", {"Kestrion.Stream"}}, {"E", {}}};
    const auto result = Order::compute(nodes, {"Kestrion.Stream"});
    EXPECT_TRUE(result.failures.empty());
    EXPECT_EQ(ids(nodes, result), (std::vector<std::string>{"A", "B", "C", "D", "E"}));

    // A dependency provided before (already loaded) counts as present.
    const std::vector<Order::Node> later{{"X", {"A"}}};
    EXPECT_EQ(ids(later, Order::compute(later, {"A"})), (std::vector<std::string>{"X"}));
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
    ASSERT_EQ(result.failures.size(), 7u);
    EXPECT_EQ(result.failures.at(1), "missing dependency \"Ghost\"");
    EXPECT_EQ(result.failures.at(2), "dependency \"NeedsGhost\" cannot be loaded");
    EXPECT_EQ(result.failures.at(3), "dependency cycle: CycleA -> CycleB -> CycleC -> CycleA");
    EXPECT_EQ(result.failures.at(4), "dependency cycle: CycleB -> CycleC -> CycleA -> CycleB");
    EXPECT_EQ(result.failures.at(5), "dependency cycle: CycleC -> CycleA -> CycleB -> CycleC");
    EXPECT_EQ(result.failures.at(6), "dependency cycle: Self -> Self");
    EXPECT_EQ(result.failures.at(7), "dependency \"CycleB\" cannot be loaded");
}
