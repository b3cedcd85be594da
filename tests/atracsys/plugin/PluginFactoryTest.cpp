// The plugin's classes linked in: panel factory, stream algorithm on the simulated camera, and the
// workspace conversion of older stream names.
#include "atracsys/gui/AtracsysTrackingController.h"
#include "atracsys/optimization/AtracsysGeometryOptimizationAlgorithm.h"
#include "atracsys/plugin/AtracsysControllerFactory.h"
#include "atracsys/plugin/AtracsysPlugin.h"
#include "atracsys/stream/AtracsysStreamAlgorithm.h"

#include "host/core/Properties.h"
#include "simulator/control/ftkSimulator.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Kestrion;
using SpryTrack::AtracsysPlugin;
using SpryTrack::AtracsysStreamAlgorithm;

namespace {

Properties workspaceWith(const std::vector<std::string>& algorithmNames) {
    Properties workspace("Workspace");
    Properties* algorithms = workspace.addSubProperties("Algorithms");
    for (const auto& name : algorithmNames)
        algorithms->addSubProperties(name)->setParam("open", true);
    return workspace;
}

std::vector<std::string> algorithmNames(const Properties& workspace) {
    std::vector<std::string> names;
    for (const Properties* block : workspace.subProperty("Algorithms")->subProperties())
        names.push_back(block->name());
    return names;
}

/// A tree that opens and starts the stream with the two example markers.
Properties trackingConfiguration() {
    Properties p;
    p.setParam("open", true);
    p.setParam("start", true);
    Properties* targets = p.addSubProperties("TrackingTargets");
    targets->addSubProperties("Marker 1000")->setParam("Path", std::string(":/markers/geometry1000.ini"));
    targets->addSubProperties("Marker 1001")->setParam("Path", std::string(":/markers/geometry1001.ini"));
    return p;
}

} // namespace

TEST(PluginConversion, RenamesEveryOldStreamNameExactlyAndOnlyOnce) {
    const Filesystem::Path file("old.kws");
    Properties workspace = workspaceWith(
        {"Atracsys.AtracsysTrackingStreamSpryTrack", "Other.Algorithm",
         "Atracsys.AtracsysTrackingStreamFusionTrack", "Atracsys.AtracsysTrackingStreamSpryTrack-Legacy-RC10",
         "Atracsys.AtracsysTrackingStreamSpryTrack-Legacy-RC13", "Atracsys.AtracsysTrackingStreamSpryTrack2",
         "atracsys.atracsystrackingstreamspryTrack"});
    EXPECT_TRUE(AtracsysPlugin::renameLegacyStreams(workspace, file));
    EXPECT_EQ(algorithmNames(workspace),
              (std::vector<std::string>{
                  "Atracsys.SpryTrackStream", "Other.Algorithm", "Atracsys.FusionTrackStream",
                  "Atracsys.SpryTrackLegacyRC10Stream", "Atracsys.SpryTrackLegacyRC13Stream",
                  "Atracsys.AtracsysTrackingStreamSpryTrack2", "atracsys.atracsystrackingstreamspryTrack"}));
    EXPECT_TRUE( // the renamed blocks keep their content
        workspace.subProperty("Algorithms")->subProperty("Atracsys.SpryTrackStream")->hasParam("open"));

    EXPECT_FALSE(AtracsysPlugin::renameLegacyStreams(workspace, file)); // nothing left to rename

    Properties noAlgorithms("Workspace");
    noAlgorithms.addSubProperties("Atracsys.AtracsysTrackingStreamSpryTrack");
    const Properties unchanged = noAlgorithms;
    EXPECT_FALSE(AtracsysPlugin::renameLegacyStreams(noAlgorithms, file));
    EXPECT_EQ(noAlgorithms, unchanged); // no Algorithms block created
}

TEST(PluginFactory, PutsTheStreamPanelOnTheStreamAlgorithmOnly) {
    TestSupport::guiApplication();
    AtracsysControllerFactory factory;
    EXPECT_EQ(factory.create(nullptr), nullptr);
    AtracsysGeometryOptimizationAlgorithm optimization(nullptr);
    EXPECT_EQ(factory.create(&optimization), nullptr);

    AtracsysStreamAlgorithm algorithm;
    std::unique_ptr<AlgorithmController> controller(factory.create(&algorithm));
    auto* panel = dynamic_cast<AtracsysTrackingController*>(controller.get());
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->algorithm(), &algorithm);
}

TEST(PluginStreamAlgorithm, CreatesOneRunningCameraStreamAndReplacesItOnTheNextCompute) {
    TestSupport::LogCapture capture;
    ftkSimResetScene();
    ftkSimSetSteppedClock(true);
    AtracsysStreamAlgorithm algorithm;
    const Properties configured = trackingConfiguration();
    algorithm.configure(&configured);

    algorithm.compute();
    ASSERT_EQ(algorithm.status(), Algorithm::Success) << capture->dump();
    SpryTrack::AtracsysTrackingStream* stream = algorithm.stream();
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->currentState(), Stream::State::Running);
    EXPECT_EQ(stream->numInstruments(false), 2u);

    // The camera stream exists once: a second algorithm cannot make another.
    AtracsysStreamAlgorithm second;
    second.compute();
    EXPECT_EQ(second.stream(), nullptr);
    EXPECT_TRUE(capture->contains(Log::Error, "CreateStreamIoAlgorithm",
                                  "Could not instantiate a new Stream: Can not create a second instance of "
                                  "AtracsysTrackingStream. Only a single instance is allowed."))
        << capture->dump();

    // Computing again replaces the stream (the old one closes and goes first).
    algorithm.compute();
    ASSERT_NE(algorithm.stream(), nullptr) << capture->dump();
    EXPECT_EQ(algorithm.stream()->currentState(), Stream::State::Running);
    algorithm.resetStream();
    EXPECT_FALSE(SpryTrack::AtracsysTrackingStream::exists());
    EXPECT_EQ(ftkSimLiveLibraries(), 0u);
    ftkSimSetSteppedClock(false);
}
