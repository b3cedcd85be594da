#pragma once

#include "host/core/Signal.h"
#include "host/lib/trackingviews/LatestTrackingFrame.h"

namespace Kestrion {

class TrackingStream;

/// A view's connection to a tracking stream while the tap lives: each frame of the stream goes to
/// latest() on the stream's worker thread, and the instrument status is asked of the stream while
/// the view wants it (a shown view). The stream must outlive the tap. The destructor ends the
/// connection, waiting for a frame being put right now, and releases the status request.
class TrackingStreamTap {
public:
    explicit TrackingStreamTap(TrackingStream& stream);
    ~TrackingStreamTap();
    TrackingStreamTap(const TrackingStreamTap&) = delete;
    TrackingStreamTap& operator=(const TrackingStreamTap&) = delete;

    /// Asks the stream for the instrument status (true) or releases the request; repeated calls
    /// with the same value change nothing.
    void requestStatus(bool wanted);
    bool statusRequested() const { return m_statusRequested; }

    TrackingStream& stream() const { return m_stream; }
    LatestTrackingFrame& latest() { return *m_latest; }

private:
    TrackingStream& m_stream;
    // Shared with the slot, which runs on the worker thread and may outlive a moved-from tap.
    std::shared_ptr<LatestTrackingFrame> m_latest;
    SignalConnection m_connection;
    bool m_statusRequested = false;
};

} // namespace Kestrion
