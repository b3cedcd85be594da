#include "host/apps/kestrion-gui/RecordingReplay.h"

#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/core/Algorithm.h"
#include "host/core/Log.h"
#include "host/core/Properties.h"
#include "host/lib/CommandAlgorithms.h"
#include "host/stream/TrackingStream.h"

namespace Kestrion::Gui {

namespace {
const char* const Category = "kestrion-gui";
}

bool RecordingReplay::open(GuiSession& session, const std::string& file) {
    std::unique_ptr<Algorithm> setup = CommandAlgorithms::instance().create(SetupAlgorithm);
    if (!setup) {
        KESTRION_LOG_ERROR(Category, "Cannot open the recording "
                                         << file
                                         << ": no plugin replays recordings (the "
                                            "Atracsys tracking plugin is not loaded)");
        return false;
    }
    Properties settings;
    settings.setParam("File", file);
    setup->configure(&settings);
    setup->compute();
    Properties result;
    setup->configuration(&result);
    if (!result.param("Replaying", false)) {
        KESTRION_LOG_ERROR(Category, "Cannot open the recording " << file << ": "
                                                                  << result.param("Error", std::string()));
        return false;
    }
    const std::vector<TrackingStream*> streams = session.trackingStreams();
    if (streams.empty()) {
        Properties openAndStart;
        openAndStart.setParam("open", true);
        openAndStart.setParam("start", true);
        if (!session.createAlgorithm(StreamAlgorithm, &openAndStart))
            return false;
        KESTRION_LOG_INFO(Category, "Replaying " << file);
        return true;
    }
    TrackingStream& stream = *streams.back();
    // Reopened, so that its library handle is one that sees the replayed camera.
    stream.close();
    const bool running = stream.open() && stream.start();
    if (running)
        KESTRION_LOG_INFO(Category, "Replaying " << file << " on " << stream.name());
    else
        KESTRION_LOG_ERROR(Category, "Cannot open the recording " << file << ": the stream " << stream.name()
                                                                  << " did not open on it");
    return running;
}

} // namespace Kestrion::Gui
