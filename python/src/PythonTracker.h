#pragma once

#include "python/src/PythonFrameQueue.h"

#include "host/core/SignalConnection.h"
#include "host/stream/TrackingInstrument.h"
#include "host/stream/state/StreamHealth.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {
class Algorithm;
class TrackingStream;
} // namespace Kestrion

namespace Kestrion::Python {

/// What a Tracker is asked for (kestrion.Tracker's arguments).
struct PythonTrackerOptions {
    /// Marker geometry files (or resources of the loaded plugins, ":/markers/...").
    std::vector<std::string> geometries;
    /// "0x..." or decimal digits; empty: the stream's own choice.
    std::string serial;
    /// "none", "marker", "vicinity" or "all".
    std::string fiducials = "none";
    bool images = false;
    /// An instrument id, a name from `names`, or one of `geometries`; empty: no reference.
    std::string reference;
    /// Instrument (id or one of `geometries`) -> name.
    std::map<std::string, std::string> names;
    /// A session recording to write (empty: none), replacing an existing file only with `force`.
    std::string record;
    bool force = false;
    /// Frames the queue holds for a consumer that falls behind; 0: the default for the images
    /// setting.
    std::size_t queueFrames = 0;
};

/// One tracking session of a Python program: the host's tracking stream created by its algorithm
/// name through the loaded plugins, opened, given the geometries, names and reference, started,
/// and its frames handed to a PythonFrameQueue by the stream's worker thread.
///
/// The constructor throws PythonError with the system's reason when something is missing or
/// refused; every decision is taken from the stream's data (state, instruments, refused
/// instruments, the cameras it lists), and the lines the host logged meanwhile are added to the
/// message as the explanation.
///
/// Threads. Made and closed on a Python thread (without the interpreter lock); the stream's worker
/// only calls the queue's push.
class PythonTracker {
public:
    /// The tracking stream's algorithm identifier.
    static const char* const AlgorithmId;
    /// Frames queued by default, without and with camera images (a pair is about 4.4 MB).
    static constexpr std::size_t DefaultQueueFrames = 4096;
    static constexpr std::size_t DefaultQueueFramesWithImages = 32;

    explicit PythonTracker(const PythonTrackerOptions& options);
    ~PythonTracker();
    PythonTracker(const PythonTracker&) = delete;
    PythonTracker& operator=(const PythonTracker&) = delete;

    /// Stops listening, stops and closes the camera (the recording is completed then). Idempotent.
    /// Returns why the recording was not completed, or "" (also on a second call).
    std::string close();
    bool isClosed() const { return m_closed.load(); }

    PythonFrameQueue& queue() { return m_queue; }
    /// Whether the stream runs (false once closed or lost).
    bool running() const;
    /// The stream's health now (stopped once closed).
    StreamHealth::Snapshot health() const;
    /// The instruments of the stream, in its order.
    std::vector<TrackingInstrument> instruments() const;
    /// The instrument of each geometry file given, in the order given.
    const std::vector<std::string>& geometryInstruments() const { return m_geometryInstruments; }
    /// The camera in use: type name and serial number (empty and 0 when the stream cannot tell).
    const std::string& cameraType() const { return m_cameraType; }
    std::uint64_t cameraSerial() const { return m_cameraSerial; }

private:
    void open(const PythonTrackerOptions& options);
    void applyNamesAndReference(const PythonTrackerOptions& options);
    void startTracking();
    std::string instrumentOf(const std::string& key) const;

    std::unique_ptr<Algorithm> m_algorithm;
    TrackingStream* m_stream = nullptr;
    PythonFrameQueue m_queue;
    SignalConnection m_connection;
    bool m_statusRequested = false;
    bool m_startCalled = false;                     // start() was called
    std::vector<std::string> m_geometryPaths;       // as the stream reads them
    std::vector<std::string> m_geometryInstruments; // instrument id per geometry file
    std::map<std::string, std::string> m_nameToId;  // user names given
    std::string m_recordFile;                       // absolute; empty: none
    std::string m_cameraType;
    std::uint64_t m_cameraSerial = 0;
    StreamHealth::Snapshot m_lastHealth; // kept at close, for the health of a closed tracker
    // A Python thread may wait for frames (reading the state and the health) while another
    // closes the tracker: the stream pointer and the last health are read and cleared under
    // m_streamMutex, held for the read or the assignment only; m_closeMutex makes concurrent
    // closes one.
    mutable std::mutex m_streamMutex;
    std::mutex m_closeMutex;
    std::atomic<bool> m_closed{false};
};

} // namespace Kestrion::Python
