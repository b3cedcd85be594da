#pragma once

#include "host/apps/kestrion/CameraStream.h"
#include "host/apps/kestrion/LogCollector.h"
#include "host/apps/kestrion/StopSignals.h"
#include "host/apps/kestrion/TrackFrameQueue.h"
#include "host/apps/kestrion/TrackIgtl.h"
#include "host/apps/kestrion/TrackOutputs.h"
#include "host/apps/kestrion/TrackRos2.h"
#include "host/apps/kestrion/TrackStatistics.h"
#include "host/core/SignalConnection.h"
#include "host/stream/connection/StreamReconnector.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

namespace Kestrion::Cli {

class CommandContext;
struct TrackConfiguration;
struct TrackOptions;

/// One run of `kestrion track`, in the phases a user sees: the outputs are checked, the camera
/// opens with its geometries, the frames are tracked until the run ends, and the run finishes
/// with the camera closed, the files completed and a summary. Each phase says what went wrong
/// on err; the outcome comes from data (the stream's state and health, the instruments it holds,
/// the geometries it refused, the results of calls), the log only shows the user why.
class TrackSession {
public:
    TrackSession(CommandContext& context, const TrackOptions& options,
                 const TrackConfiguration& configuration);
    ~TrackSession();
    TrackSession(const TrackSession&) = delete;
    TrackSession& operator=(const TrackSession&) = delete;

    /// Runs every phase; the command's exit status.
    int run();

private:
    bool checkOutputs();
    bool open();
    bool start();
    void track();
    int finish();

    bool geometriesLoaded(const LogCollector& log);
    /// Applies --name and --reference; false after a message when they name no instrument.
    bool namesApplied();
    /// The reference chosen by --reference, else by the workspace; empty: none.
    std::string referenceId() const;
    void listen();
    void takeFrames(const std::vector<std::shared_ptr<const StreamData>>& batch);
    void showTable(std::chrono::steady_clock::time_point now);
    void stopListening();
    std::optional<RecordingStatus> recordingOutcome();

    const TrackOptions& m_options;
    const TrackConfiguration& m_configuration;
    std::ostream& m_out;
    std::ostream& m_err;
    const std::uint64_t m_startMs;
    const std::chrono::steady_clock::time_point m_startTime;

    TrackOutputs m_outputs;
    std::unique_ptr<CameraStream> m_camera;
    TrackingStream* m_stream = nullptr;
    TrackIgtl m_igtl;
    TrackRos2 m_ros2;
    bool m_statusRequested = false;
    TrackFrameQueue m_queue;
    SignalConnection m_connection;
    std::optional<StopSignals> m_stopSignals;
    std::optional<StreamReconnector> m_reconnector;

    TrackStatistics m_statistics;
    std::optional<std::uint64_t> m_firstPoseMs;
    std::uint64_t m_reopenings = 0;
    std::size_t m_instruments = 0;
    bool m_cameraLost = false; ///< the stream stopped running (without --reconnect)
    bool m_ended = false;      ///< the source has no more frames (a replay at its end)

    // The table's refresh.
    bool m_tty = false;
    std::uint64_t m_framesAtRefresh = 0;
    std::chrono::steady_clock::time_point m_lastRefresh;
    std::size_t m_tableLines = 0;
    double m_rateHz = 0.0;
};

} // namespace Kestrion::Cli
