#include "tests/atracsys/stream/StreamTestSupport.h"

#include "atracsys/device/AtracsysOptionHelpers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

namespace Kestrion::TrackingStreamTest {

std::string dataFile(const std::string& name) {
    return std::string(KESTRION_TEST_DATA_DIR) + "/trackingstream/" + name;
}

void HeldResources::expectBaseline(const char* step) const {
    EXPECT_EQ(ftkSimLiveLibraries(), libraries) << "library handles, " << step;
    EXPECT_EQ(ftkSimLiveFrames(), frames) << "frame records, " << step;
}

SceneGuard::SceneGuard(const std::string& sceneFile) {
    // Stepped before the devices exist, so that they start at frame 0 however long loading takes.
    ftkSimSetSteppedClock(true);
    const std::string path = sceneFile.rfind('/', 0) == 0 ? sceneFile : dataFile(sceneFile);
    if (!ftkSimLoadSceneFile(path.c_str())) {
        char error[1024] = {};
        ftkSimGetLastError(error, sizeof(error));
        ADD_FAILURE() << "cannot load scene " << sceneFile << ": " << error;
    }
}

SceneGuard::~SceneGuard() {
    ftkSimSetSteppedClock(false);
    ftkSimResetScene();
}

bool ProbedStream::openWithMarkers() {
    const bool opened = open();
    EXPECT_TRUE(opened) << "the stream opens";
    const bool tool = addGeometry("tool", dataFile("geometry1000.ini"));
    const bool reference = addGeometry("reference", dataFile("geometry1001.ini"));
    EXPECT_TRUE(tool && reference) << "the markers are added";
    return opened && tool && reference;
}

bool ProbedStream::injectFaultAt(std::uint64_t fromNow, const std::string& faultKeys) {
    const std::uint64_t serial = serialNumber();
    const std::string json =
        "{\"atFetch\": " + std::to_string(ftkSimFetchCount(serial) + fromNow) + ", " + faultKeys + "}";
    const bool injected = ftkSimInjectFault(serial, json.c_str());
    EXPECT_TRUE(injected) << json;
    return injected;
}

std::chrono::milliseconds ProbedStream::round() {
    const auto before = Clock::now();
    const auto next = doWork();
    return next ? std::chrono::duration_cast<std::chrono::milliseconds>(*next - before)
                : std::chrono::milliseconds(0);
}

std::unique_ptr<ftkSimFrameTruth> ProbedStream::truth() {
    auto truth = std::make_unique<ftkSimFrameTruth>();
    std::lock_guard<std::mutex> lock(deviceContext().mutex());
    if (ftkSimGetFrameTruth(deviceContext().library(), deviceContext().serialNumber(), truth.get()) !=
        ftkError::FTK_OK)
        return nullptr;
    return truth;
}

std::uint64_t ProbedStream::serialNumber() {
    std::lock_guard<std::mutex> lock(deviceContext().mutex());
    return deviceContext().serialNumber();
}

std::optional<float> ProbedStream::floatOption(const std::string& name) {
    std::lock_guard<std::mutex> lock(deviceContext().mutex());
    return SpryTrack::AtracsysHelpers::getOption<float>(
        deviceContext().library(), deviceContext().serialNumber(), deviceContext().options(), name);
}

std::optional<int> ProbedStream::intOption(std::uint32_t id) {
    std::lock_guard<std::mutex> lock(deviceContext().mutex());
    int32 value = 0;
    if (ftkGetInt32(deviceContext().library(), deviceContext().serialNumber(), id, &value,
                    ftkOptionGetter::FTK_VALUE) != ftkError::FTK_OK)
        return std::nullopt;
    return value;
}

Recorder::Recorder(SpryTrack::AtracsysTrackingStream& stream) {
    m_connections.push_back(stream.signalStreamData.connect([this](std::shared_ptr<const StreamData> data) {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        auto compound = std::dynamic_pointer_cast<const CompoundStreamData>(data);
        ASSERT_TRUE(compound) << "the stream emits compound data";
        std::lock_guard<std::mutex> lock(m_mutex);
        m_data.push_back(std::move(compound));
        m_emittedUS.push_back(double(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
        m_changed.notify_all();
    }));
    m_connections.push_back(stream.signalAtracsysUpdate.connect([this](AtracsysUpdate& update) {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_updates;
        m_lastUpdate = update;
    }));
    m_connections.push_back(stream.signalInstrumentsModified.connect([this](InstrumentModifications) {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_modifications;
    }));
}

Recorder::~Recorder() {
    for (auto& connection : m_connections)
        connection.disconnect();
}

bool Recorder::waitForData(std::size_t count, std::chrono::seconds timeout) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return m_data.size() >= count; });
}

std::shared_ptr<const TrackingStreamData> trackingOf(const std::shared_ptr<const CompoundStreamData>& data) {
    return data ? std::dynamic_pointer_cast<const TrackingStreamData>(data->mainData()) : nullptr;
}

const TrackingInstrumentFiducialsData* fiducialsOf(const std::shared_ptr<const CompoundStreamData>& data) {
    auto tracking = trackingOf(data);
    return tracking ? tracking->component<TrackingInstrumentFiducialsData>() : nullptr;
}

} // namespace Kestrion::TrackingStreamTest
