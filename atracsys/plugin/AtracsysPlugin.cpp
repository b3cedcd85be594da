#include "atracsys/plugin/AtracsysPlugin.h"
#include "atracsys/plugin/AtracsysWorkingVolumes.h"

#include "atracsys/plugin/AtracsysAlgorithmFactory.h"
#include "atracsys/plugin/AtracsysControllerFactory.h"
#include "atracsys/plugin/AtracsysGeometryCheckAlgorithm.h"
#include "atracsys/plugin/AtracsysReplayAlgorithm.h"

#include "atracsys/calibration/AtracsysToolTipFileFormat.h"

#include "host/calibration/ToolTipFileFormats.h"

#include "host/core/Properties.h"
#include "host/lib/AlgorithmControllerFactory.h"
#include "host/lib/CommandAlgorithms.h"
#include "host/lib/DataAnnotationFactory.h"
#include "host/lib/WorkspaceConversionRegistry.h"
#include "host/licensing/Licensing.h"

#include <array>
#include <memory>
#include <utility>

namespace Kestrion::SpryTrack {

namespace {

const char* const GeometryCheckId = "Atracsys.GeometryCheck";
const char* const ReplayRecordingId = "Atracsys.ReplayRecording";

/// Old algorithm names of the tracking streams and their current names.
const std::array<std::pair<const char*, const char*>, 4> LegacyStreamNames{{
    {"Atracsys.AtracsysTrackingStreamFusionTrack", "Atracsys.FusionTrackStream"},
    {"Atracsys.AtracsysTrackingStreamSpryTrack", "Atracsys.SpryTrackStream"},
    {"Atracsys.AtracsysTrackingStreamSpryTrack-Legacy-RC10", "Atracsys.SpryTrackLegacyRC10Stream"},
    {"Atracsys.AtracsysTrackingStreamSpryTrack-Legacy-RC13", "Atracsys.SpryTrackLegacyRC13Stream"},
}};

} // namespace

int AtracsysPlugin::init() {
    if (!isLicensed("Atracsys"))
        return 1;
    registerFactories(std::make_unique<AtracsysAlgorithmFactory>(),
                      std::make_unique<AtracsysControllerFactory>(), nullptr);
    WorkspaceConversionRegistry::instance().addConversion(
        WorkspaceConversion{"Renamed Atracsys tracking stream to standardized naming scheme", 34,
                            &AtracsysPlugin::renameLegacyStreams});
    registerAtracsysWorkingVolumes();
    // Marker geometry files checked as tracking would take them, for kestrion check-geometry: a
    // command's algorithm, not one the users' algorithm list offers.
    CommandAlgorithms::instance().add(pluginId(), GeometryCheckId,
                                      [] { return std::make_unique<AtracsysGeometryCheckAlgorithm>(); });
    // A recording made the camera, for the desktop host's "Open Recording...".
    CommandAlgorithms::instance().add(pluginId(), ReplayRecordingId,
                                      [] { return std::make_unique<AtracsysReplayAlgorithm>(); });
    ToolTipFileFormats::instance().add(pluginId(), std::make_shared<AtracsysToolTipFileFormat>());
    return 0;
}

AtracsysPlugin::~AtracsysPlugin() {
    CommandAlgorithms::instance().remove(pluginId());
    ToolTipFileFormats::instance().remove(pluginId());
}

const std::string& AtracsysPlugin::pluginId() {
    // Built on first use (thread-safe initialisation of a local static), kept until unloading.
    static const std::string id = std::string("Kestrion.AtracsysTracking") + "SpryTrack";
    return id;
}

std::string AtracsysPlugin::id() const {
    return pluginId();
}

std::string AtracsysPlugin::author() const {
    return "Atracsys";
}

std::string AtracsysPlugin::description() const {
    return "Plugin for real-time streaming Atracsys tracking systems";
}

std::vector<std::string> AtracsysPlugin::dependencies() const {
    return {"Kestrion.Stream"};
}

bool AtracsysPlugin::renameLegacyStreams(Properties& workspace, const Filesystem::Path& /*file*/) {
    Properties* algorithms = workspace.subProperty("Algorithms");
    if (!algorithms)
        return false;
    bool renamed = false;
    for (Properties* block : algorithms->subProperties())
        for (const auto& [oldName, newName] : LegacyStreamNames)
            if (block->name() == oldName) {
                block->setName(newName);
                renamed = true;
                break;
            }
    return renamed;
}

} // namespace Kestrion::SpryTrack
