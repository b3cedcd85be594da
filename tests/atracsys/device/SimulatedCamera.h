#pragma once

#include "simulator/control/ftkSimulator.h"

#include <ftkInterface.h>

#include <gtest/gtest.h>

#include <string>

namespace Kestrion::TestSupport {

/// A library handle on the simulated camera with a given scene; closes the handle and restores
/// the default scene when it goes.
class SimulatedCamera {
public:
    explicit SimulatedCamera(const std::string& sceneJson) {
        if (!ftkSimLoadScene(sceneJson.c_str())) {
            char error[512] = {};
            ftkSimGetLastError(error, sizeof error);
            ADD_FAILURE() << "scene refused: " << error;
        }
        m_lib = ftkInit();
        if (m_lib == nullptr)
            ADD_FAILURE() << "ftkInit failed";
    }
    ~SimulatedCamera() {
        if (m_lib != nullptr)
            ftkClose(&m_lib);
        ftkSimResetScene();
    }
    SimulatedCamera(const SimulatedCamera&) = delete;
    SimulatedCamera& operator=(const SimulatedCamera&) = delete;

    ftkLibrary lib() const { return m_lib; }

    /// The SDK's last error text on this handle, as checkErrorAndLog must log it.
    std::string lastErrorText() const {
        char buffer[1024] = {};
        EXPECT_EQ(ftkGetLastErrorString(m_lib, sizeof buffer, buffer), ftkError::FTK_OK);
        return buffer;
    }

private:
    ftkLibrary m_lib = nullptr;
};

} // namespace Kestrion::TestSupport
