#pragma once

#include "host/core/Algorithm.h"

#include <memory>

namespace Kestrion {

class Stream;

/// An algorithm whose result is a stream (a camera, a tracker): compute() creates the stream and
/// the algorithm owns it until a host takes it with takeOutput(). Hosts find the stream of any
/// such algorithm through this interface without knowing the stream's class.
class StreamAlgorithm : public Algorithm {
public:
    StreamAlgorithm() = default;
    ~StreamAlgorithm() override;

    /// The stream made by the last compute(), or null (none yet, or it failed). Still the stream
    /// after takeOutput(), without owning it.
    virtual Stream* outputStream() const = 0;
    /// Hands the stream to the caller, who owns it from then on; the algorithm no longer deletes
    /// it. Null when there is no stream or it was already taken.
    virtual std::unique_ptr<Stream> takeOutput() = 0;
};

} // namespace Kestrion
