#include "host/lib/trackingviews/TrackingStreamTap.h"

#include "host/stream/TrackingStream.h"

namespace Kestrion {

TrackingStreamTap::TrackingStreamTap(TrackingStream& stream)
    : m_stream(stream)
    , m_latest(std::make_shared<LatestTrackingFrame>()) {
    m_connection = stream.signalStreamData.connect(
        [latest = m_latest](const std::shared_ptr<const StreamData>& data) { latest->put(data); });
}

TrackingStreamTap::~TrackingStreamTap() {
    m_connection.disconnect();
    requestStatus(false);
}

void TrackingStreamTap::requestStatus(bool wanted) {
    if (wanted == m_statusRequested)
        return;
    m_statusRequested = wanted;
    if (wanted)
        m_stream.requestInstrumentStatus();
    else
        m_stream.releaseInstrumentStatus();
}

} // namespace Kestrion
