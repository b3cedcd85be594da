#pragma once

#include "simulator/src/DeviceClock.h"
#include "simulator/src/FrameProducer.h"
#include "simulator/src/FrameSource.h"

#include <memory>

namespace Kestrion::Simulator {

/// Frames measured from the scene as the device's clock makes them: exposed at the device's rate
/// (drifting against the host's clock), fetchable once their delivery delay has passed.
class LiveFrameSource : public FrameSource {
public:
    /// `stepped`: the simulator's clock when the device is made.
    LiveFrameSource(const DeviceModel& model, std::shared_ptr<const SceneDescription> scene,
                    std::uint64_t serial, bool stepped);

    std::uint64_t currentIndex(bool stepped, TimePoint now) override {
        return m_clock.currentIndex(stepped, now);
    }
    std::uint64_t takeNext(bool stepped, TimePoint now) override { return m_clock.takeNext(stepped, now); }
    void skip(bool stepped, TimePoint now, std::uint64_t frames) override {
        m_clock.skip(stepped, now, frames);
    }
    std::optional<TimePoint> arrival(std::uint64_t index) const override { return m_clock.timeOf(index); }
    double timeS(std::uint64_t index) const override { return static_cast<double>(index) / m_clock.rateHz(); }

    bool produce(std::uint64_t index, const ProductionSettings& settings, FrameData& frame, FrameTruth& truth,
                 std::string& error) override;
    void drawImages(const ProductionSettings& settings, SensorImage& left, SensorImage& right) override {
        m_producer.drawImages(settings, left, right);
    }
    bool exposureTime(std::uint64_t index, std::int64_t& exposureUS) const override;

private:
    DeviceClock m_clock;
    FrameProducer m_producer;
};

} // namespace Kestrion::Simulator
