#pragma once

#include <string>

namespace Kestrion::Gui {

class GuiSession;

/// "Open Recording...": a recording file replaces the camera and the session's tracking stream
/// plays it. The camera's plugin sets up the replay (its command algorithm
/// "Atracsys.ReplayRecording": the simulated camera library plays the file as a camera); then
/// the session's newest tracking stream is closed and opened again on it (an open library
/// handle keeps the cameras it had) and started, or, in a session without one, the camera's
/// stream is created opened and started. GUI thread; the stream's close, open and start are
/// waited for, like the panel's start and stop.
class RecordingReplay {
public:
    /// The command algorithm of the camera's plugin that makes a recording the camera.
    static constexpr const char* SetupAlgorithm = "Atracsys.ReplayRecording";
    /// The stream algorithm created when the session has no tracking stream.
    static constexpr const char* StreamAlgorithm = "Atracsys.SpryTrackStream";

    /// False, with an error line naming the file and the reason, when the file cannot be played.
    static bool open(GuiSession& session, const std::string& file);
};

} // namespace Kestrion::Gui
