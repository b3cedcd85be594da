#pragma once

#include "host/stream/Stream.h"
#include "host/stream/SubstreamBase.h"

#include <string>
#include <utility>

namespace Kestrion {

/// A stream of type T (an ImageStream, ...) that is part of another stream's group: its data are
/// produced by the main stream and emitted on it by StreamGroup::emitMainAndSubSignals, whatever
/// the substream's own state. Its transitions only move its own state machine (T's impls), so
/// consumers can open and start it like any stream without touching the device behind the main
/// stream.
template <class T>
class Substream : public T, public SubstreamBase {
public:
    Substream(Stream& mainStream, int index, std::string name)
        : T(std::move(name))
        , SubstreamBase(mainStream, index) {}
    ~Substream() override { this->close(); }

    Stream& stream() override { return *this; }
    const Stream& stream() const override { return *this; }
};

} // namespace Kestrion
