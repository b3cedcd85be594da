#include "host/core/Algorithm.h"
#include "host/core/Parameter.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/ProgressWidget.h"
#include "host/lib/widgets/PropertiesController.h"
#include "host/lib/widgets/PropertiesWidget.h"
#include "host/lib/widgets/StreamControllerBase.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

using namespace Kestrion;
using TestSupport::waitFor;

namespace {

/// Like a stream: its integration time is clamped to what the device accepts.
class StreamAlgorithm : public Algorithm {
public:
    Parameter<int> integrationTime{"imageIntegrationTime", 100, this};
    void configure(const Properties* properties) override {
        Algorithm::configure(properties);
        integrationTime = std::min(integrationTime.value(), 500);
    }
    void compute() override {}
};

/// A panel wired as stream panels are: both slots on the properties widget's signal.
class StreamPanel : public StreamControllerBase {
public:
    explicit StreamPanel(Algorithm* algorithm)
        : StreamControllerBase(algorithm) {
        properties = new PropertiesWidget(static_cast<Configurable*>(algorithm), this);
        auto* layout = new QVBoxLayout(this);
        layout->addWidget(properties);
        connect(properties, SIGNAL(parameterChanged(std::string)), this, SLOT(onParameterChanged()));
        connect(properties, SIGNAL(parameterChanged(std::string)), this, SLOT(updateStreamSettings()));
    }
    PropertiesWidget* properties;
};

class ControllerTest : public ::testing::Test {
protected:
    void SetUp() override { TestSupport::guiApplication(); }
};

TEST_F(ControllerTest, StreamPanelsApplyEditsAndShowWhatTheStreamKept) {
    StreamAlgorithm algorithm;
    StreamPanel panel(&algorithm);
    panel.init();

    auto* time = qobject_cast<QSpinBox*>(panel.properties->editor("imageIntegrationTime"));
    ASSERT_NE(time, nullptr);
    time->setValue(800);
    EXPECT_EQ(algorithm.integrationTime.value(), 500);
    EXPECT_EQ(time->value(), 500); // read back from the algorithm
}

class SlowAlgorithm : public Algorithm {
public:
    Parameter<int> steps{"steps", 3, this};
    Parameter<bool> fail{"fail", false, this};
    Parameter<bool> raise{"raise", false, this};
    std::atomic<bool> release{false};
    void compute() override {
        ProgressTask task = addProgressTask(steps.value(), "Slow work");
        while (!release.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        task.setProgress(steps.value());
        if (raise.value())
            throw std::runtime_error("device unplugged");
        setStatus(fail.value() ? Error : Success);
    }
};

TEST_F(ControllerTest, PropertiesPanelComputesOnAWorkerAndShowsTheOutcome) {
    TestSupport::LogCapture capture;
    MainWindow window;
    SlowAlgorithm algorithm;
    algorithm.setIdentifier("Test.Slow");
    PropertiesControllerFactory factory;
    std::unique_ptr<AlgorithmController> controller(factory.create(&algorithm));
    auto* panel = dynamic_cast<PropertiesController*>(controller.get());
    ASSERT_NE(panel, nullptr);
    panel->setMainWindow(&window);
    panel->init();

    qobject_cast<QSpinBox*>(panel->propertiesWidget()->editor("steps"))->setValue(5);
    EXPECT_EQ(algorithm.steps.value(), 5); // edits reach the algorithm at once

    panel->computeButton()->click();
    EXPECT_FALSE(panel->computeButton()->isEnabled());
    // The task shows in the window's progress display while the worker runs.
    ASSERT_TRUE(waitFor([&]() { return window.progressWidget()->rowCount() == 1; }));
    EXPECT_EQ(window.progressWidget()->descriptionLabel(0)->text(), "Slow work");
    algorithm.release = true;
    ASSERT_TRUE(waitFor([&]() { return !panel->isComputing(); }));
    EXPECT_EQ(panel->statusLabel()->text(), "Computed");
    EXPECT_TRUE(panel->computeButton()->isEnabled());

    algorithm.fail = true;
    panel->compute();
    ASSERT_TRUE(waitFor([&]() { return !panel->isComputing(); }));
    EXPECT_EQ(panel->statusLabel()->text(), "Failed");
    EXPECT_TRUE(capture->contains(Log::Error, "PropertiesController", "Test.Slow: Failed"))
        << capture->dump();

    algorithm.raise = true;
    panel->compute();
    ASSERT_TRUE(waitFor([&]() { return !panel->isComputing(); }));
    EXPECT_EQ(panel->statusLabel()->text(), "Failed: device unplugged");

    // Deleting the panel while it computes waits for the worker.
    algorithm.release = false;
    algorithm.raise = false;
    panel->compute();
    std::thread releaser([&]() {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        algorithm.release = true;
    });
    controller.reset();
    releaser.join();
}

} // namespace
