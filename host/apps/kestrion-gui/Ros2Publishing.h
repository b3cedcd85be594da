#pragma once

namespace Kestrion::Gui {

class GuiSession;

/// The desktop host's ROS 2 publishing: the algorithm "Kestrion.Ros2Publisher" in the algorithm
/// list ("IO;ROS 2;Publisher"), which publishes the session's newest tracking stream.
namespace Ros2Publishing {

/// Registers the algorithm's factory with the host's factory registry (once).
void registerAlgorithm();
/// Hands every publisher algorithm of the session the newest tracking stream (none when there is
/// none): called whenever the session's algorithms change.
void followSession(const GuiSession& session);

} // namespace Ros2Publishing
} // namespace Kestrion::Gui
