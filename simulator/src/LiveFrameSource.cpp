#include "simulator/src/LiveFrameSource.h"

#include "simulator/src/Random.h"

namespace Kestrion::Simulator {

LiveFrameSource::LiveFrameSource(const DeviceModel& model, std::shared_ptr<const SceneDescription> scene,
                                 std::uint64_t serial, bool stepped)
    : m_clock(DeviceClock::Settings{model.rateHz, model.clockDriftPPM, model.deliveryJitterMS,
                                    Random::mix(scene->seed, serial ^ 0x64656c6179ull)},
              std::chrono::steady_clock::now(), stepped)
    , m_producer(model, std::move(scene), serial) {}

bool LiveFrameSource::produce(std::uint64_t index, const ProductionSettings& settings, FrameData& frame,
                              FrameTruth& truth, std::string& /*error*/) {
    m_producer.produce(index, settings, frame, truth);
    truth.exposureUS = m_clock.exposureEpochUS(index);
    truth.deliverableUS = m_clock.deliverableEpochUS(index);
    return true;
}

bool LiveFrameSource::exposureTime(std::uint64_t index, std::int64_t& exposureUS) const {
    exposureUS = m_clock.exposureEpochUS(index);
    return true;
}

} // namespace Kestrion::Simulator
