#pragma once

#include "host/stream/InstrumentModification.h"
#include "host/stream/Stream.h"
#include "host/stream/TrackingInstrument.h"

#include <atomic>
#include <memory>
#include <vector>

namespace Kestrion {

class TrackingStreamData;

/// A stream of tracked instruments (a tracking camera). Its data items are TrackingStreamData,
/// usually built with createTrackingStreamData() from the current instruments.
class TrackingStream : public Stream {
public:
    using Stream::Stream;

    /// A copy of the current instruments, in the stream's order; safe from any thread.
    virtual std::vector<TrackingInstrument> instruments() const = 0;
    /// Number of instruments, or of the active ones only.
    virtual std::size_t numInstruments(bool onlyActive) const;

    /// What changed in the instruments, emitted by emitSignals() on the calling thread.
    Signal<InstrumentModifications> signalInstrumentsModified;
    /// The positions of an instrument's fiducials in its own frame (mm), for views that draw the
    /// marker; empty when the stream cannot tell (the default) or has no such instrument.
    virtual std::vector<Eigen::Vector3d> instrumentGeometry(const std::string& instrumentId) {
        (void)instrumentId;
        return {};
    }
    /// Emits signalInstrumentsModified when the flags are not empty.
    void emitSignals(InstrumentModifications modifications);

    /// A data item holding a snapshot of instruments(): its arrival timestamp is now (ms since the
    /// epoch, UTC), its device timestamp the latest timestamp of the instruments (0 without any).
    std::shared_ptr<TrackingStreamData> createTrackingStreamData() const;

    /// Consumers that read the InstrumentStatusData of the frames ask for it while they need it
    /// (one request each, from any thread); a producer attaches it only while at least one
    /// request is open, so that nobody pays for it otherwise.
    void requestInstrumentStatus() { m_statusRequests.fetch_add(1, std::memory_order_relaxed); }
    void releaseInstrumentStatus() { m_statusRequests.fetch_sub(1, std::memory_order_relaxed); }
    bool instrumentStatusRequested() const { return m_statusRequests.load(std::memory_order_relaxed) > 0; }

private:
    // A count rather than a flag: several consumers ask and release independently.
    std::atomic<int> m_statusRequests{0};
};

} // namespace Kestrion
