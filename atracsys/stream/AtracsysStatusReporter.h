#pragma once

#include "atracsys/status/AtracsysInstrumentStatusEvaluator.h"
#include "atracsys/stream/AtracsysInstruments.h"

#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingInstrument.h"

#include <ftkInterface.h>

#include <memory>
#include <vector>

namespace Kestrion::SpryTrack {

/// The instrument status of a fetched frame: hands the frame's raw fiducials and markers and the
/// registry's geometries to the status evaluator as plain records and returns its findings as the
/// host's data component. Used on the stream's worker thread only; its buffers keep their
/// capacity from frame to frame.
class AtracsysStatusReporter {
public:
    /// The status of every instrument of `instruments` (the frame's tracking data, which gives the
    /// order and the active flags) in the frame.
    std::shared_ptr<InstrumentStatusData> report(const ftkFrameQuery& frame, AtracsysInstruments& registry,
                                                 const std::vector<TrackingInstrument>& instruments,
                                                 const AtracsysInstrumentStatusEvaluator::Settings& settings);

private:
    void readFrame(const ftkFrameQuery& frame);
    void readInstruments(AtracsysInstruments& registry, const std::vector<TrackingInstrument>& instruments);

    StatusFrame m_frame;
    std::vector<StatusInstrument> m_instruments;
    std::size_t m_instrumentCount = 0;
    AtracsysInstrumentStatusEvaluator m_evaluator;
    std::vector<InstrumentStatusData::Entry> m_entries;
};

} // namespace Kestrion::SpryTrack
