#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Kestrion {
class CompoundStreamData;
}

namespace Kestrion::Cli {

/// Saves the camera images of tracking frames as PNG files in a folder, with the fiducials that
/// the device detected marked (an ellipse of the detection's size and a cross at its centre), at
/// most one left/right pair per interval so that disk and time stay small:
/// "<folder>/frame-<counter>-left.png" and "-right.png" (counter: the device's frame counter,
/// else the frame's number); the folder exists (see OutputPath). Errors name the file and the reason; the
/// first one stops the saving.
class TrackImageSaver {
public:
    TrackImageSaver(std::string folder, double intervalS);

    /// Saves the images of the frame when the interval since the last saved pair has passed and
    /// the frame has both images. False once saving failed.
    bool offer(const CompoundStreamData& frame, std::uint64_t frameIndex);

    std::uint64_t pairsSaved() const { return m_pairs; }
    bool failed() const { return !m_error.empty(); }
    const std::string& error() const { return m_error; }

private:
    std::string m_folder;
    std::uint64_t m_intervalMs;
    std::uint64_t m_lastSavedMs = 0;
    std::uint64_t m_pairs = 0;
    std::string m_error;
};

} // namespace Kestrion::Cli
