#pragma once

namespace Kestrion {

/// Registers the types the plugin's widgets pass through queued Qt calls: "TrackingInstrument",
/// "QList<TrackingInstrument>" and the host's own (std::string). Idempotent; GUI thread.
void registerAtracsysMetaTypes();

} // namespace Kestrion
