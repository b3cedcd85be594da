#pragma once

namespace Kestrion::Simulator {

/// The built-in default scene (simulator/scenes/default.json, compiled in).
const char* defaultSceneJson();

} // namespace Kestrion::Simulator
