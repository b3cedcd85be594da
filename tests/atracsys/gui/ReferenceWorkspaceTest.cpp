// The reference and the names chosen in the instrument view are the camera stream's settings: a
// workspace saved then keeps them, and the workspace opened again has them (or no reference once
// "No reference" was chosen).

#include "atracsys/plugin/AtracsysAlgorithmFactory.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/Workspace.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/stream/StreamAlgorithm.h"
#include "host/stream/state/InstrumentNames.h"
#include "tests/atracsys/gui/GuiTestSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Kestrion;

TEST(ReferenceWorkspace, TheReferenceAndNamesChosenInTheInstrumentViewAreKeptByTheWorkspace) {
    GuiTest::ensureApplication();
    QTemporaryDir folder;
    const std::string file = folder.filePath("or3.kws").toStdString();
    FactoryRegistry registry;
    registry.addAlgorithmFactory(std::make_unique<AtracsysAlgorithmFactory>(), "test");
    const auto streamOf = [](const Workspace& workspace) {
        const auto& algorithm = dynamic_cast<const StreamAlgorithm&>(*workspace.algorithms().at(0).algorithm);
        return dynamic_cast<SpryTrack::AtracsysTrackingStream*>(algorithm.outputStream());
    };
    // Chosen in the view, then saved; opened again, then "No reference" and saved; opened again.
    for (const bool withReference : {true, false}) {
        {
            Workspace workspace;
            if (withReference) {
                workspace.add("Atracsys.SpryTrackStream",
                              registry.createAlgorithm("Atracsys.SpryTrackStream"));
                workspace.algorithms()[0].algorithm->compute();
            } else {
                ASSERT_TRUE(workspace.load(file, registry).ok());
            }
            SpryTrack::AtracsysTrackingStream* stream = streamOf(workspace);
            ASSERT_TRUE(stream && stream->numInstruments(false) + withReference == 1);
            // The workspace opened again has it among its tracking targets.
            ASSERT_TRUE(!withReference ||
                        stream->addGeometry("pointer", KESTRION_SOURCE_DIR "/data/markers/geometry1000.ini"));
            InstrumentView view;
            view.setStream(stream);
            ASSERT_FALSE(view.renameInstrument("atracsys-1000", "Stylus"));
            view.setReferenceInstrument(withReference ? "atracsys-1001" : "");
            ASSERT_TRUE(workspace.save(file));
            view.setStream(nullptr);
        } // the stream goes with its workspace: one camera stream at a time
        Workspace workspace;
        ASSERT_TRUE(workspace.load(file, registry).ok());
        SpryTrack::AtracsysTrackingStream* stream = streamOf(workspace);
        ASSERT_TRUE(stream && stream->instrumentNames());
        EXPECT_EQ(stream->instrumentNames()->displayName("atracsys-1000"), "Stylus") << withReference;
        EXPECT_EQ(stream->referenceInstrument(), withReference ? "atracsys-1001" : "");
    }
}
