#include "tests/atracsys/gui/SimulatorScene.h"

#include "simulator/control/ftkSimulator.h"
#include "tests/atracsys/gui/GuiTestSupport.h"

#include <gtest/gtest.h>

namespace Kestrion::GuiTest {

SceneGuard::SceneGuard(const std::string& sceneFile) {
    if (!ftkSimLoadSceneFile(dataFile(sceneFile).c_str())) {
        char error[512] = {};
        ftkSimGetLastError(error, sizeof error);
        ADD_FAILURE() << "scene " << sceneFile << " refused: " << error;
    }
    ftkSimSetSteppedClock(true);
}

SceneGuard::~SceneGuard() {
    ftkSimSetSteppedClock(false);
    ftkSimResetScene();
}

} // namespace Kestrion::GuiTest
