#pragma once

#include "host/stream/Stream.h"

namespace Kestrion {

/// A stream of images: its data items are ImageStreamData. Camera images offered by another
/// stream are typically Substream<ImageStream>s of that stream's group.
class ImageStream : public Stream {
public:
    using Stream::Stream;
    ~ImageStream() override;
};

} // namespace Kestrion
