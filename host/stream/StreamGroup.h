#pragma once

#include "host/stream/StreamGroupBase.h"
#include "host/stream/Substream.h"

namespace Kestrion {

/// The group part of a stream class T that derives from StreamGroup<T> (besides a Stream class):
///
///     class CameraStream : public TrackingStream, public StreamGroup<CameraStream> { ... };
///
/// Its proxy stream is the T object itself.
template <class T>
class StreamGroup : public StreamGroupBase {
public:
    Stream* proxyStream() override { return static_cast<T*>(this); }
};

} // namespace Kestrion
