#include "host/core/Configurable.h"
#include "host/core/Parameter.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kestrion;

namespace {

enum class OptimizationMode : int { BestFrame = 0, WeightedAverage = 1, Nonlinear = 2 };

// A configurable with settings of its own besides registered parameters.
class Tracker : public Configurable {
public:
    Tracker() { tolerance.setAttribute("unit", "mm"); }

    void configure(const Properties* p) override {
        Configurable::configure(p);
        if (p)
            p->getParam("maxFiducialMarkerDistance", maxDistance);
    }
    void configuration(Properties* p) const override {
        Configurable::configuration(p);
        if (p)
            p->setParam("maxFiducialMarkerDistance", maxDistance);
    }
    void configureDefaults() override {
        Configurable::configureDefaults();
        maxDistance = 100.0;
    }

    Parameter<float> tolerance{"Distance matching tolerance", 1.0f, this};
    Parameter<OptimizationMode> mode{"optimizationMode", OptimizationMode::Nonlinear, this};
    Parameter<unsigned> budget{"budget", 7u, this};
    double maxDistance = 100.0;
};

} // namespace

TEST(Configurable, ParametersAndDerivedSettingsAreWrittenInOrderReadBackByNameAndReset) {
    TestSupport::LogCapture capture;
    Tracker tracker;
    Properties p;
    p.setParam("Distance matching tolerance", 2.5f);
    p.setParam("maxFiducialMarkerDistance", 80.0);
    p.setParam("optimizationMode", 1);
    p.setParam("budget", -3);
    tracker.configure(&p);
    EXPECT_EQ(tracker.maxDistance, 80.0);
    EXPECT_EQ(tracker.mode, OptimizationMode::WeightedAverage);
    EXPECT_EQ(tracker.budget.value(), 7u);
    EXPECT_TRUE(capture->contains(Log::Warning, "Configurable",
                                  "Invalid value '-3' for parameter 'budget' (unsigned), keeping 7"))
        << capture->dump();

    Properties text;
    text.setParam("Distance matching tolerance", std::string("0.25"));
    tracker.configure(&text);
    EXPECT_EQ(tracker.tolerance.value(), 0.25f) << "a text value that converts is accepted";
    EXPECT_EQ(tracker.mode, OptimizationMode::WeightedAverage) << "an absent key keeps the value";

    Properties out;
    tracker.configuration(&out);
    EXPECT_EQ(out.paramNames(), (std::vector<std::string>{"Distance matching tolerance", "optimizationMode",
                                                          "budget", "maxFiducialMarkerDistance"}));
    EXPECT_EQ(out.paramText("optimizationMode"), std::optional<std::string>("1"));
    EXPECT_EQ(out.paramAttribute("Distance matching tolerance", "unit"), std::optional<std::string>("mm"));

    tracker.configure(nullptr);
    tracker.configureDefaults();
    EXPECT_EQ(tracker.tolerance.value(), 1.0f);
    EXPECT_EQ(tracker.maxDistance, 100.0);
}

TEST(Configurable, ParametersLeaveTheRegistryWhenDestroyed) {
    TestSupport::LogCapture capture;
    Tracker tracker;
    { Parameter<int> temporary("temporary", 1, &tracker); }
    EXPECT_EQ(tracker.parameters().size(), 3u);
    EXPECT_EQ(tracker.parameter("temporary"), nullptr);

    // A parameter that outlives its owner no longer refers to it.
    auto owner = std::make_unique<Tracker>();
    auto outliving = std::make_unique<Parameter<int>>("budget", 1, owner.get());
    EXPECT_TRUE(capture->contains(Log::Warning, "Configurable",
                                  "Parameter 'budget' is registered twice; both use the same key"));
    owner.reset();
    EXPECT_EQ(outliving->owner(), nullptr);
}

TEST(Configurable, ParameterValuesAreSharedSafelyBetweenThreads) {
    Tracker tracker;
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            tracker.tolerance = static_cast<float>(i % 2 ? 1.5 : 2.5);
        }
        done = true;
    });
    int reads = 0;
    while (!done || reads == 0) {
        const float value = tracker.tolerance;
        EXPECT_TRUE(value == 1.0f || value == 1.5f || value == 2.5f) << value;
        Properties p;
        tracker.configuration(&p);
        ++reads;
    }
    writer.join();
}
