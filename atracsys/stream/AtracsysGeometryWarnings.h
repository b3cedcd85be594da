#pragma once

#include "atracsys/stream/AtracsysInstruments.h"

#include <string>

namespace Kestrion::SpryTrack {

/// Compares the geometry of instrument `id` with itself and with every other geometry of the
/// registry at the distance tolerance, and logs one warning per finding (AtracsysAmbiguityCheck)
/// under AmbiguityCategory. Reads clones of the geometries: the registry is locked only while
/// they are copied.
void warnAboutAmbiguity(const AtracsysInstruments& registry, const std::string& id, double toleranceMM);

/// Logs at error level why the geometry of `path` was not added: its instrument id `id` is that
/// of the geometry already loaded from another file.
void explainDuplicateId(AtracsysInstruments& registry, const std::string& id, const std::string& path);

} // namespace Kestrion::SpryTrack
