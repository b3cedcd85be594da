#pragma once

#include "simulator/src/FrameData.h"

#include "recording/RecordingReader.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Kestrion::Simulator {

/// A recording played back as a device's frames (FTK_SIMULATOR_REPLAY). Opening reads the
/// whole file once, checking every record (images by their checksum, without decompressing
/// them), and keeps where each frame starts; frames are then read one at a time, so memory does
/// not grow with the recording.
///
/// Not thread safe: the device that plays it calls it with its own mutex held.
class ReplaySource {
public:
    /// What the replay delivers as markers: those recorded, or those found again in the recorded
    /// fiducials with the geometries registered now.
    enum class Markers { Recorded, Matched };

    /// Null with the reason in `error` when the file is missing, not a recording, too new,
    /// damaged, or holds no frame. A recording cut short opens with its whole frames and a
    /// note in `warning`.
    static std::unique_ptr<ReplaySource> open(const std::string& path, Markers markers, std::string& error,
                                              std::string& warning);

    const Recording::SessionHeader& header() const { return m_reader.header(); }
    const std::string& path() const { return m_path; }
    std::uint64_t frameCount() const { return m_offsets.size(); }
    /// Frames per second of the recording, from the device's timestamps of its first and last frame.
    double rateHz() const { return m_rateHz; }
    /// When frame `index` (< frameCount()) was taken, in µs after the first frame, by the device's
    /// clock (never earlier than the frame before it).
    std::uint64_t timeUS(std::uint64_t index) const { return m_timesUS[index]; }
    /// The newest frame taken at most `elapsedUS` after the first one.
    std::uint64_t frameAt(std::uint64_t elapsedUS) const;
    Markers markers() const { return m_markers; }

    /// Fills `frame` with recorded frame `index` (< frameCount()). False with the reason in
    /// `error` when the file cannot be read again as it was when opened.
    bool load(std::uint64_t index, FrameData& frame, std::string& error);

private:
    ReplaySource() = default;

    std::string m_path;
    Markers m_markers = Markers::Recorded;
    Recording::RecordingReader m_reader;
    std::vector<std::uint64_t> m_offsets;
    std::vector<std::uint64_t> m_timesUS;
    double m_rateHz = 0.0;
    Recording::Frame m_frame; ///< Reused for every frame read.
};

} // namespace Kestrion::Simulator
