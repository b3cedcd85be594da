#pragma once

#include "simulator/src/ReplaySource.h"
#include "simulator/src/SceneDescription.h"

#include <ftkInterface.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace Kestrion::Simulator {

class Device;

/// The process-wide state of the simulated camera library: the current scene and its devices,
/// the live library handles, and the clock mode.
///
/// Thread safety: m_mutex guards the scene, the devices list and the handle table, because
/// handles are opened, used and closed from any thread and the control interface may load a
/// scene meanwhile. Calls on a handle look it up under the mutex and keep it alive with a shared
/// pointer, so closing it on another thread cannot free it under a running call.
class Simulator {
public:
    static Simulator& instance();

    /// Opens a handle on the current scene's devices, loading the scene first if there is none
    /// (FTK_SIMULATOR_SCENE, else the built-in default). Null when that scene cannot be loaded;
    /// the reason goes to stderr and to lastSceneError().
    ftkLibrary open();
    /// False when the handle is not live.
    bool close(ftkLibrary handle);
    /// The live handle, or null.
    std::shared_ptr<ftkLibraryImp> find(ftkLibrary handle);
    std::size_t liveHandles();

    /// Replaces the devices for handles opened afterwards. False with the reason in `error`
    /// (and lastSceneError()) when the scene is invalid; the current scene then stays.
    bool loadSceneText(const std::string& json, std::string& error);
    bool loadSceneFile(const std::string& path, std::string& error);
    bool loadDefaultScene(std::string& error);
    /// Replaces the devices with one playing the recording `path` (as FTK_SIMULATOR_REPLAY does).
    bool loadReplay(const std::string& path, bool matchMarkers, std::string& error);
    std::string lastSceneError();

    /// A device of the current scene, or null.
    std::shared_ptr<Device> device(std::uint64_t serial);
    std::vector<std::shared_ptr<Device>> devices();

    /// Switches every device's clock; fetches of the current scene's devices that wait for a
    /// frame look again at once (those of earlier scenes at their next frame or deadline).
    void setSteppedClock(bool stepped);
    bool steppedClock() const { return m_stepped.load(); }

private:
    Simulator() = default;
    bool install(const SceneDescription& scene, std::string& error);
    bool ensureSceneLocked(std::string& error);
    bool installReplayLocked(const std::string& path, ReplaySource::Markers markers, std::string& error);

    std::mutex m_mutex;
    bool m_hasScene = false;
    std::vector<std::shared_ptr<Device>> m_devices;
    std::unordered_map<const ftkLibraryImp*, std::shared_ptr<ftkLibraryImp>> m_handles;
    std::string m_lastSceneError;
    std::atomic<bool> m_stepped{false};
};

} // namespace Kestrion::Simulator
