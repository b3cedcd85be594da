#include "host/lib/FactoryRegistry.h"
#include "host/core/Parameter.h"
#include "host/lib/AlgorithmFactory.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;

namespace {

class Counter : public Algorithm {
public:
    void compute() override {}
    Parameter<int> start{"start", 0, this};
};

struct ImageData : Data {};

class TestFactory : public AlgorithmFactory {
public:
    explicit TestFactory(const std::string& prefix, bool listed = true)
        : AlgorithmFactory(prefix, listed) {
        Properties defaults;
        defaults.setParam("start", 5);
        registerAlgorithm<Counter>("Counter", "Test;Counting;Counter", {}, defaults);
    }
};

} // namespace

TEST(AlgorithmFactory, RegistersAlgorithmsByNameAndCreatesConfiguredInstances) {
    TestSupport::LogCapture capture;
    TestFactory factory("Test");
    EXPECT_FALSE(factory.registerAlgorithm<Counter>("Counter", "Elsewhere"));
    EXPECT_TRUE(capture->contains(Log::Warning, "AlgorithmFactory",
                                  "Factory Test: algorithm Test.Counter is already registered"));
    EXPECT_EQ(factory.algorithms().size(), 1u);

    // Creation names the instance and applies the default properties.
    auto algorithm = factory.create("Counter");
    ASSERT_NE(algorithm, nullptr);
    EXPECT_EQ(algorithm->identifier(), "Test.Counter");
    EXPECT_EQ(static_cast<Counter*>(algorithm.get())->start.value(), 5);
    EXPECT_EQ(factory.create("Counter", DataList{std::make_shared<ImageData>()}), nullptr); // takes no input
    EXPECT_EQ(factory.create("Missing"), nullptr);
}

TEST(FactoryRegistry, FindsAlgorithmsByIdentifierAcrossFactoriesAndOwners) {
    TestSupport::LogCapture capture;
    FactoryRegistry registry;
    registry.addAlgorithmFactory(std::make_unique<TestFactory>("Alpha"), "Plugin.A");
    registry.addAlgorithmFactory(std::make_unique<TestFactory>("Alpha.Beta", false), "Plugin.B");
    registry.addAlgorithmFactory(std::make_unique<TestFactory>("Alpha"), "Plugin.C");
    registry.addAlgorithmFactory(nullptr, "Plugin.D");
    EXPECT_EQ(registry.algorithmFactoryCount(), 3u);
    EXPECT_TRUE(capture->contains(Log::Warning, "FactoryRegistry",
                                  "Algorithm Alpha.Counter of plugin Plugin.C is already provided by plugin "
                                  "Plugin.A, which keeps it"))
        << capture->dump();
    ASSERT_EQ(registry.algorithms().size(), 3u);
    EXPECT_EQ(registry.algorithms()[1].owner, "Plugin.B");

    // A dotted prefix resolves to its own factory; the first factory keeps a duplicate.
    auto beta = registry.createAlgorithm("Alpha.Beta.Counter");
    ASSERT_NE(beta, nullptr);
    EXPECT_EQ(beta->identifier(), "Alpha.Beta.Counter");
    EXPECT_EQ(registry.algorithms()[0].factory, registry.algorithmsOf("Plugin.A")[0].factory);
    for (const char* absent : {"Alpha.", "Counter", "alpha.Counter"})
        EXPECT_FALSE(registry.hasAlgorithm(absent)) << absent;
    EXPECT_EQ(registry.createAlgorithm("Gamma.Counter"), nullptr);

    // The duplicate of the removed factory takes over.
    EXPECT_EQ(registry.removeOwnedBy("Plugin.A"), 1u);
    EXPECT_TRUE(registry.hasAlgorithm("Alpha.Counter"));
    EXPECT_EQ(registry.algorithms()[1].owner, "Plugin.C");
}
