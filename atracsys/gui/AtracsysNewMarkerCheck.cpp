#include "atracsys/gui/AtracsysNewMarkerCheck.h"

#include "atracsys/geometry-checks/AtracsysAmbiguityCheck.h"
#include "atracsys/stream/AtracsysTrackingStreamBase.h"

#include "host/core/Log.h"
#include "host/core/Properties.h"

namespace Kestrion::SpryTrack {

void warnAboutNewMarker(AtracsysTrackingStreamBase& stream, const std::string& file,
                        const std::vector<Eigen::Vector3d>& points) {
    if (!Log::isAccepted(Log::Warning, AmbiguityCategory))
        return;
    // The tolerance is a setting of the stream, read through its configuration.
    Properties settings;
    stream.configuration(&settings);
    const double tolerance = settings.param("Distance matching tolerance", 1.0f);
    std::vector<AmbiguityGeometry> others;
    for (const TrackingInstrument& instrument : stream.instruments())
        others.push_back(
            {instrument.id.name + " (" + instrument.ID() + ")", stream.geometryCoordinates(instrument.ID())});
    for (const AmbiguityFinding& finding : AtracsysAmbiguityCheck(tolerance).check({file, points}, others))
        KESTRION_LOG(Log::Warning, AmbiguityCategory, finding.text);
}

} // namespace Kestrion::SpryTrack
