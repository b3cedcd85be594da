#pragma once

// Helpers of the tracking stream's tests: simulated scenes, a stream the test steps, a recorder.

#include "atracsys/stream/AtracsysDeviceContext.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"

#include "simulator/control/ftkSimulator.h"

#include "tests/support/WaitFor.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion::TrackingStreamTest {

constexpr const char* StreamCategory = "AtracsysTrackingStream";

/// A file of tests/data/trackingstream.
std::string dataFile(const std::string& name);

/// Library handles and frame records of the simulated camera alive at construction.
struct HeldResources {
    std::size_t libraries = ftkSimLiveLibraries();
    std::size_t frames = ftkSimLiveFrames();
    void expectBaseline(const char* step) const;
};

/// Loads a scene file (of tests/data/trackingstream unless absolute) with the stepped clock; restores
/// the default scene and the free-running clock when it goes.
class SceneGuard {
public:
    explicit SceneGuard(const std::string& sceneFile);
    ~SceneGuard();
    SceneGuard(const SceneGuard&) = delete;
    SceneGuard& operator=(const SceneGuard&) = delete;
};

/// The stream with its acquisition round callable from the test, which plays the worker thread.
class ProbedStream : public SpryTrack::AtracsysTrackingStream {
public:
    explicit ProbedStream(const std::string& name = "Atracsys Tracking Stream")
        : AtracsysTrackingStream(name) {}
    /// Closed here, while the object is still whole: a running worker may call its virtual
    /// functions until the close has joined it.
    ~ProbedStream() override { close(); }

    /// Opens and adds "tool" (atracsys-1000) and "reference" (atracsys-1001); false on failure.
    bool openWithMarkers();
    /// Adds a fault (the JSON keys after its trigger) `fromNow` fetches after the last one.
    bool injectFaultAt(std::uint64_t fromNow, const std::string& faultKeys);
    /// One acquisition round; returns the wait until the next one.
    std::chrono::milliseconds round();
    using AtracsysTrackingStream::fetchFrame;
    using AtracsysTrackingStream::processFrame;
    /// The simulator's truth of the last frame fetched (null when there is none).
    std::unique_ptr<ftkSimFrameTruth> truth();
    std::uint64_t serialNumber();
    std::optional<float> floatOption(const std::string& name);
    std::optional<int> intOption(std::uint32_t id);
};

/// Keeps every data item the stream emits, and every camera update (copied), from any thread.
class Recorder {
public:
    explicit Recorder(SpryTrack::AtracsysTrackingStream& stream);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    std::size_t dataCount() const {
        return locked([this] { return m_data.size(); });
    }
    std::size_t updateCount() const {
        return locked([this] { return m_updates; });
    }
    std::size_t modificationCount() const {
        return locked([this] { return m_modifications; });
    }
    std::shared_ptr<const CompoundStreamData> dataAt(std::size_t index) const {
        return locked([this, index] { return m_data.at(index); });
    }
    /// When data item `index` was emitted (µs since the epoch, UTC).
    double emittedUSAt(std::size_t index) const {
        return locked([this, index] { return m_emittedUS.at(index); });
    }
    std::shared_ptr<const CompoundStreamData> lastData() const {
        return locked([this] { return m_data.empty() ? nullptr : m_data.back(); });
    }
    AtracsysUpdate lastUpdate() const {
        return locked([this] { return m_lastUpdate; });
    }
    bool waitForData(std::size_t count, std::chrono::seconds timeout = std::chrono::seconds(20)) const;

private:
    template <class Read>
    auto locked(Read read) const -> decltype(read()) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return read();
    }

    mutable std::mutex m_mutex; // items arrive on the stream's worker thread, the test reads them
    mutable std::condition_variable m_changed;
    std::vector<std::shared_ptr<const CompoundStreamData>> m_data;
    std::vector<double> m_emittedUS; // one per item of m_data
    std::size_t m_updates = 0;
    std::size_t m_modifications = 0;
    AtracsysUpdate m_lastUpdate;
    std::vector<SignalConnection> m_connections;
};

std::shared_ptr<const TrackingStreamData> trackingOf(const std::shared_ptr<const CompoundStreamData>& data);
const TrackingInstrumentFiducialsData* fiducialsOf(const std::shared_ptr<const CompoundStreamData>& data);

using TestSupport::waitFor;

} // namespace Kestrion::TrackingStreamTest
