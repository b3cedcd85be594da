#pragma once

#include "host/core/Flags.h"

namespace Kestrion {

/// What changed in a set of tracking instruments.
enum class InstrumentModification : unsigned {
    /// The pose or state of an instrument changed: matrix, quality, timestamp or state field.
    PoseChanged = 1,
    /// Instruments were added or removed, or an instrument's name or model number changed.
    InstrumentsChanged = 4,
};
KESTRION_FLAG_OPERATORS(InstrumentModification)

using InstrumentModifications = Flags<InstrumentModification>;

} // namespace Kestrion
