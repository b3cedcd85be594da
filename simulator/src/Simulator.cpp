#include "simulator/src/Simulator.h"

#include "simulator/src/DefaultScene.h"
#include "simulator/src/Device.h"
#include "simulator/src/LibraryHandle.h"
#include "simulator/src/ReplayDeviceFactory.h"
#include "simulator/src/SceneParser.h"

#include <cstdio>
#include <cstdlib>

namespace Kestrion::Simulator {

Simulator& Simulator::instance() {
    // Never destroyed: handles and frame records may outlive static destruction order.
    static Simulator* simulator = new Simulator();
    return *simulator;
}

bool Simulator::install(const SceneDescription& scene, std::string& error) {
    auto shared = std::make_shared<const SceneDescription>(scene);
    std::vector<std::shared_ptr<Device>> devices;
    for (std::size_t i = 0; i < scene.devices.size(); ++i) {
        const DeviceDescription& d = scene.devices[i];
        auto device = std::make_shared<Device>(d, shared, m_stepped);
        for (const OptionSetting& setting : d.options) {
            std::string reason;
            if (!device->applySetting(setting, reason)) {
                error = "scene " + scene.source + ": devices[" + std::to_string(i) + "].options: " + reason;
                m_lastSceneError = error;
                return false;
            }
        }
        devices.push_back(std::move(device));
    }
    m_devices = std::move(devices);
    m_hasScene = true;
    m_lastSceneError.clear();
    return true;
}

bool Simulator::ensureSceneLocked(std::string& error) {
    if (m_hasScene) {
        return true;
    }
    const char* replay = std::getenv("FTK_SIMULATOR_REPLAY");
    if (replay != nullptr && *replay != '\0') {
        ReplaySource::Markers markers = ReplaySource::Markers::Recorded;
        bool fetchPace = false;
        if (!ReplayDeviceFactory::markersFromEnvironment(markers, error) ||
            !ReplayDeviceFactory::paceFromEnvironment(fetchPace, error) ||
            !installReplayLocked(replay, markers, error)) {
            m_lastSceneError = error;
            return false;
        }
        // One recorded frame per fetch, as fast as they are fetched: the stepped clock.
        if (fetchPace) {
            m_stepped.store(true);
        }
        return true;
    }
    SceneDescription scene;
    const char* path = std::getenv("FTK_SIMULATOR_SCENE");
    const bool parsed =
        (path != nullptr && *path != '\0')
            ? SceneParser::parseFile(path, scene, error)
            : SceneParser::parse(defaultSceneJson(), "", "built-in default scene", scene, error);
    if (!parsed) {
        m_lastSceneError = error;
        return false;
    }
    return install(scene, error);
}

bool Simulator::installReplayLocked(const std::string& path, ReplaySource::Markers markers,
                                    std::string& error) {
    std::shared_ptr<Device> device = ReplayDeviceFactory::create(path, markers, m_stepped, error);
    if (!device) {
        return false;
    }
    m_devices = {std::move(device)};
    m_hasScene = true;
    m_lastSceneError.clear();
    return true;
}

bool Simulator::loadReplay(const std::string& path, bool matchMarkers, std::string& error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!installReplayLocked(
            path, matchMarkers ? ReplaySource::Markers::Matched : ReplaySource::Markers::Recorded, error)) {
        m_lastSceneError = error;
        return false;
    }
    return true;
}

ftkLibrary Simulator::open() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string error;
    if (!ensureSceneLocked(error)) {
        std::fprintf(stderr, "ftkInit: %s\n", error.c_str());
        return nullptr;
    }
    auto handle = std::make_shared<ftkLibraryImp>(m_devices);
    ftkLibraryImp* raw = handle.get();
    m_handles.emplace(raw, std::move(handle));
    return raw;
}

bool Simulator::close(ftkLibrary handle) {
    std::shared_ptr<ftkLibraryImp> keep;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_handles.find(handle);
        if (it == m_handles.end()) {
            return false;
        }
        keep = std::move(it->second);
        m_handles.erase(it);
    }
    // Released here, outside the lock (a running call on another thread may still hold it).
    return true;
}

std::shared_ptr<ftkLibraryImp> Simulator::find(ftkLibrary handle) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_handles.find(handle);
    return it == m_handles.end() ? nullptr : it->second;
}

std::size_t Simulator::liveHandles() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_handles.size();
}

bool Simulator::loadSceneText(const std::string& json, std::string& error) {
    SceneDescription scene;
    if (!SceneParser::parse(json, ".", "(text)", scene, error)) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastSceneError = error;
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    return install(scene, error);
}

bool Simulator::loadSceneFile(const std::string& path, std::string& error) {
    SceneDescription scene;
    if (!SceneParser::parseFile(path, scene, error)) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastSceneError = error;
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    return install(scene, error);
}

bool Simulator::loadDefaultScene(std::string& error) {
    SceneDescription scene;
    if (!SceneParser::parse(defaultSceneJson(), "", "built-in default scene", scene, error)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    return install(scene, error);
}

std::string Simulator::lastSceneError() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastSceneError;
}

std::shared_ptr<Device> Simulator::device(std::uint64_t serial) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string error;
    ensureSceneLocked(error);
    for (const auto& d : m_devices) {
        if (d->serial() == serial) {
            return d;
        }
    }
    return nullptr;
}

void Simulator::setSteppedClock(bool stepped) {
    m_stepped.store(stepped);
    std::vector<std::shared_ptr<Device>> devices;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        devices = m_devices;
    }
    // Outside the simulator's mutex: the devices take their own.
    for (const std::shared_ptr<Device>& device : devices) {
        device->clockChanged();
    }
}

std::vector<std::shared_ptr<Device>> Simulator::devices() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string error;
    ensureSceneLocked(error);
    return m_devices;
}

} // namespace Kestrion::Simulator
