#pragma once

// Scenes of the simulated camera for the user-interface tests.

#include <string>

namespace Kestrion::GuiTest {

/// Loads a scene file of tests/data/gui and switches the simulated camera to the stepped clock;
/// restores the default scene and the free-running clock when it goes.
class SceneGuard {
public:
    explicit SceneGuard(const std::string& sceneFile);
    ~SceneGuard();
    SceneGuard(const SceneGuard&) = delete;
    SceneGuard& operator=(const SceneGuard&) = delete;
};

} // namespace Kestrion::GuiTest
