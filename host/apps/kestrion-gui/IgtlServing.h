#pragma once

namespace Kestrion::Gui {

class GuiSession;

/// The desktop host's OpenIGTLink serving: the algorithm "Kestrion.OpenIGTLinkServer" in the
/// algorithm list ("IO;OpenIGTLink;Server"), which serves the session's newest tracking stream.
namespace IgtlServing {

/// The algorithm's identifier in the registry and the workspace.
constexpr const char* AlgorithmIdentifier = "Kestrion.OpenIGTLinkServer";

/// Registers the algorithm's factory and its panel's (IgtlServerPanel) with the host's factory
/// registry (once).
void registerAlgorithm();
/// Hands every server algorithm of the session the newest tracking stream (none when there is
/// none): called whenever the session's algorithms change.
void followSession(const GuiSession& session);

} // namespace IgtlServing
} // namespace Kestrion::Gui
