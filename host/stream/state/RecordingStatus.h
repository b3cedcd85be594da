#pragma once

#include <cstdint>
#include <string>

namespace Kestrion {

/// Where a stream's recording of its session stands, for every host to read as data (the
/// command's summary, the desktop host's panel): whether it runs, waits for a lost camera, was
/// completed or was cut short, with the frames it holds. A stream that records gives it through
/// TrackingStream::recordingStatus().
///
/// The recording belongs to the tracking session: a camera that is lost and reopened goes on into
/// the same file, a gap marking the time without frames.
struct RecordingStatus {
    enum class State {
        Recording, ///< frames are being written
        Waiting,   ///< the camera was lost; the recording goes on when it is reopened
        Complete,  ///< finished: the file holds the whole session's frames (but those dropped)
        CutShort,  ///< ended before the session did (see reason); the file holds `frames` frames
    };

    State state = State::Recording;
    /// The file the user named.
    std::string file;
    /// Where the frames are: the file, or "<file>.part" when it could not be finished.
    std::string writtenFile;
    /// Frames written so far, and those the recorder dropped because its writer fell behind.
    std::uint64_t frames = 0;
    std::uint64_t dropped = 0;
    /// Bytes of the file written so far (header and records), for a size shown while recording.
    std::uint64_t bytes = 0;
    /// When the recording began, in µs since the epoch (UTC); a reader's elapsed time starts here.
    std::uint64_t startedUS = 0;
    /// Times the camera was lost and reopened while recording (the gaps in the file).
    std::uint64_t gaps = 0;
    /// Why the recording was cut short, in words (empty otherwise).
    std::string reason;

    /// "recording", "waiting for the camera", "complete", "cut short".
    static const char* stateName(State state) {
        switch (state) {
        case State::Recording:
            return "recording";
        case State::Waiting:
            return "waiting for the camera";
        case State::Complete:
            return "complete";
        case State::CutShort:
            return "cut short";
        }
        return "unknown";
    }
};

} // namespace Kestrion
