#pragma once

#include "host/stream/TrackingStreamData.h"

#include <Eigen/Core>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrion {

/// The poses of one instrument recorded for a pivot calibration, taken from the frames of a
/// tracking stream under the rules of the geometry refinement's recording: the instrument is
/// tracked with a quality above 0.8 (registration error under 2 mm) and every fiducial of its
/// geometry is seen (the frame's fiducials data, with the fiducials belonging to the markers,
/// lists that many for it). Recording ends when the user stops it or after a number of frames.
///
/// add() runs on the stream's worker thread for every frame; it copies one pose under a mutex
/// (held for the copy only, so the worker never waits long) and counts. start(), stop(),
/// progress and poses() are for any other thread.
class PivotRecording {
public:
    /// `fiducialCount`: fiducials of the instrument's geometry (0: not checked). `frames`: the
    /// recording stops by itself after that many accepted frames (0: only when stopped).
    PivotRecording(std::string instrumentId, std::size_t fiducialCount, std::size_t frames);

    /// Drops what was recorded and starts taking frames.
    void start();
    void stop() { m_recording.store(false); }
    bool isRecording() const { return m_recording.load(); }

    /// Takes the frame's pose of the instrument if recording and the frame follows the rules.
    void add(const TrackingStreamData& frame);

    std::size_t acceptedFrames() const { return m_accepted.load(); }
    /// Frames that came while recording without the instrument tracked, or with fiducials missing.
    std::size_t notTrackedFrames() const { return m_notTracked.load(); }
    std::size_t incompleteFrames() const { return m_incomplete.load(); }
    std::size_t targetFrames() const { return m_target; }
    const std::string& instrumentId() const { return m_instrumentId; }

    /// A copy of the recorded poses.
    std::vector<Eigen::Matrix4d> poses() const;

private:
    bool complete(const TrackingStreamData& frame, std::size_t instrumentIndex) const;

    const std::string m_instrumentId;
    const std::size_t m_fiducialCount;
    const std::size_t m_target;
    std::atomic<bool> m_recording{false};
    std::atomic<std::size_t> m_accepted{0};
    std::atomic<std::size_t> m_notTracked{0};
    std::atomic<std::size_t> m_incomplete{0};
    mutable std::mutex m_mutex; // m_poses: written by the stream's thread, read by the caller's
    std::vector<Eigen::Matrix4d> m_poses;
};

} // namespace Kestrion
