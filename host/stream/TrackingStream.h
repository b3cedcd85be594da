#pragma once

#include "host/stream/InstrumentModification.h"
#include "host/stream/Stream.h"
#include "host/stream/TrackingInstrument.h"
#include "host/stream/state/DeviceReading.h"
#include "host/stream/state/RecordingStatus.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {

class TrackingStreamData;
class InstrumentNames;

/// A geometry (instrument) the device refused, with the file it came from and why, for hosts that
/// decide on it (an exit status) without reading the log.
struct InstrumentRefusal {
    std::string instrumentId;
    std::string source;
    std::string reason;
};

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

    /// Instruments the device refused since the stream was opened (empty by default).
    virtual std::vector<InstrumentRefusal> refusedInstruments() const { return {}; }

    /// Where the recording of this session stands; none when the stream records nothing (the
    /// default). Any thread.
    virtual std::optional<RecordingStatus> recordingStatus() const { return std::nullopt; }

    /// What the device reports about itself now (its temperature, counters, settings), read
    /// from it; empty when the stream cannot tell (the default) or the device is not open. It may
    /// wait for the device like any control call: call it from a thread that may wait (neither
    /// the worker's nor the user interface's), about once a second at most.
    virtual std::vector<DeviceReading> readDevice() const { return {}; }

    /// The user's instrument names; every frame made after a change carries the new names.
    void setInstrumentNames(const InstrumentNames& names);
    std::shared_ptr<const InstrumentNames> instrumentNames() const;
    /// The instrument whose frame the other instruments are also given in (empty: none).
    void setReferenceInstrument(const std::string& instrumentId);
    std::string referenceInstrument() const;

    /// The host's per-frame additions, called by the producer on a frame before it emits it and
    /// after it attached its own components (status, tips): the names in force and, with a
    /// reference chosen, the poses in the reference's frame (ReferencePoseData).
    void completeFrame(TrackingStreamData& frame) const;

private:
    // Guards the names and the reference: set from any thread, read per frame on the worker. Held
    // for a pointer copy only.
    mutable std::mutex m_frameSettingsMutex;
    std::shared_ptr<const InstrumentNames> m_names;
    std::string m_referenceId;

    // A count rather than a flag: several consumers ask and release independently.
    std::atomic<int> m_statusRequests{0};
};

} // namespace Kestrion
