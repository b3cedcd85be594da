#pragma once

#include "simulator/control/ftkSimulator.h"

#include <ftkInterface.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Kestrion::TestSupport {

/// The serial of the single spryTrack 180 in sceneWithFaults.
constexpr std::uint64_t simulatedSerial = 0x5354;

/// A scene holding one spryTrack 180 (serial simulatedSerial) with the given faults.
inline std::string sceneWithFaults(const std::string& faults) {
    return R"({"devices": [{"model": "spryTrack 180", "serial": "0x5354", "faults": [)" + faults + "]}]}";
}

/// An option as the SDK reports it, copied out of the enumeration callback.
struct ReportedOption {
    std::uint32_t id = 0;
    bool hasName = false;
    std::string name, description, unit;
};

/// A library handle on the simulated camera with a given scene, restored to the default when it goes.
class SimulatedCamera {
public:
    explicit SimulatedCamera(const std::string& sceneJson) {
        char error[512] = {};
        if (!ftkSimLoadScene(sceneJson.c_str()) && ftkSimGetLastError(error, sizeof error) > 0)
            ADD_FAILURE() << "scene refused: " << error;
        m_lib = ftkInit();
        EXPECT_NE(m_lib, nullptr);
    }
    ~SimulatedCamera() {
        ftkClose(&m_lib);
        ftkSimResetScene();
    }
    SimulatedCamera(const SimulatedCamera&) = delete;
    SimulatedCamera& operator=(const SimulatedCamera&) = delete;

    ftkLibrary lib() const { return m_lib; }

    std::string lastErrorText() const {
        char buffer[1024] = {};
        EXPECT_EQ(ftkGetLastErrorString(m_lib, sizeof buffer, buffer), ftkError::FTK_OK);
        return buffer;
    }

    /// Every option the SDK reports for `sn`, in its order.
    std::vector<ReportedOption> reportedOptions(std::uint64_t sn) const {
        std::vector<ReportedOption> options;
        ftkEnumerateOptions(
            m_lib, sn,
            [](std::uint64_t, void* user, ftkOptionsInfo* info) {
                const char *name = info->name, *description = info->description, *unit = info->unit;
                static_cast<std::vector<ReportedOption>*>(user)->push_back(
                    {info->id, name != nullptr, name ? name : "", description ? description : "",
                     unit ? unit : ""});
            },
            &options);
        return options;
    }

    /// The first reported option of that name.
    ReportedOption reportedOption(std::uint64_t sn, const std::string& name) const {
        for (const ReportedOption& option : reportedOptions(sn))
            if (option.name == name)
                return option;
        ADD_FAILURE() << "the device reports no option " << name;
        return {};
    }

private:
    ftkLibrary m_lib = nullptr;
};

} // namespace Kestrion::TestSupport
