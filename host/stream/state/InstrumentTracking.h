#pragma once

#include <cstdint>

namespace Kestrion {

class TrackingStreamData;
struct TrackingInstrument;

/// Whether an instrument is tracked in a frame, the one definition every output reads: active,
/// a quality above 0 and, when the frame carries the instruments' status, a tracked status.
/// A frame held after the stream stopped delivering is a past frame: readers that show a held
/// frame also read the stream's health (StreamHealth) and show nothing as tracked while it is not
/// delivering.
bool isInstrumentTracked(const TrackingStreamData& frame, const TrackingInstrument& instrument);

/// The frame's time in microseconds since the epoch (UTC): its capture time when the producer
/// attached one (CaptureTimeData), else its arrival time.
std::uint64_t frameTimeUS(const TrackingStreamData& frame);

} // namespace Kestrion
