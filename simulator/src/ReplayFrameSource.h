#pragma once

#include "simulator/src/FrameSource.h"
#include "simulator/src/ReplaySource.h"

#include <memory>

namespace Kestrion::Simulator {

/// A recording's frames at its recorded pace: the first frame delivered is the recording's first,
/// and each next one can be fetched as long after it as the recorded device timestamps say (one
/// per fetch on the stepped clock). After the last frame there is none. Frame indices are the
/// recording's (0 for its first frame).
class ReplayFrameSource : public FrameSource {
public:
    ReplayFrameSource(std::unique_ptr<ReplaySource> recording, bool stepped);

    std::uint64_t currentIndex(bool stepped, TimePoint now) override;
    std::uint64_t takeNext(bool stepped, TimePoint now) override;
    void skip(bool stepped, TimePoint now, std::uint64_t frames) override;
    std::optional<TimePoint> arrival(std::uint64_t index) const override;
    double timeS(std::uint64_t index) const override;

    void delivering(std::uint64_t index, TimePoint now) override;
    bool pastEnd(std::uint64_t index, std::string& message) const override;
    bool isLast(std::uint64_t index) const override { return index + 1 >= m_recording->frameCount(); }

    bool produce(std::uint64_t index, const ProductionSettings& settings, FrameData& frame, FrameTruth& truth,
                 std::string& error) override;

    bool replays() const override { return true; }
    bool rematchesMarkers() const override {
        return m_recording->markers() == ReplaySource::Markers::Matched;
    }

private:
    void follow(bool stepped, TimePoint now);
    /// The recorded frame the free-running replay is at: the newest recorded by `now`.
    std::uint64_t recordedAt(TimePoint now) const;
    std::chrono::microseconds recordedTime(std::uint64_t index) const;

    std::unique_ptr<ReplaySource> m_recording;
    bool m_stepped;
    bool m_started = false;   ///< A frame was delivered.
    TimePoint m_zero;         ///< Free running: when the recording's time 0 was (once started).
    std::uint64_t m_next = 0; ///< Stepped: the next frame to take.
};

} // namespace Kestrion::Simulator
