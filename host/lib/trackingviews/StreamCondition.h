#pragma once

#include "host/stream/state/StreamHealth.h"

#include <QString>

namespace Kestrion {

class Stream;

/// What a view says about a stream's data, read from the host's StreamHealth and the stream's
/// state: whether the newest frame is current (the stream delivers), and when it is not, why, in
/// a few words for a table cell and in a sentence for a banner. Every view of the desktop host
/// takes its "current or held" decision from here and from nowhere else.
struct StreamCondition {
    StreamHealth::Snapshot health;
    /// The stream delivers: its newest frame is the present.
    bool current = false;
    /// Why nothing is current, short ("camera not delivering", "stream closed", "data ended");
    /// empty while current.
    QString reason;
    /// The same for a banner, with the time since the last data and the last error when known;
    /// empty while current.
    QString sentence;

    static StreamCondition of(const Stream& stream,
                              StreamHealth::Clock::time_point now = StreamHealth::Clock::now());
    /// "2.3 s", "4 min 10 s": a duration for people.
    static QString duration(StreamHealth::Clock::duration duration);
};

} // namespace Kestrion
