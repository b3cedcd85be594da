#include "host/lib/PluginDescriptor.h"
#include "host/lib/PluginDependencyOrder.h"
#include "host/lib/PluginExport.h"

#include <gtest/gtest.h>

#include <map>

using namespace Kestrion;

namespace {

using Order = PluginDependencyOrder;

std::vector<std::string> ids(const std::vector<Order::Node>& nodes, const Order::Result& result) {
    std::vector<std::string> out;
    for (auto i : result.order)
        out.push_back(nodes[i].id);
    return out;
}

} // namespace

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
