#include "host/stream/InstrumentStatusData.h"

namespace Kestrion {

const InstrumentStatusData::Entry* InstrumentStatusData::find(const std::string& instrumentId) const {
    for (const auto& entry : m_entries)
        if (entry.instrumentId == instrumentId)
            return &entry;
    return nullptr;
}

const char* InstrumentStatusData::stateName(State state) {
    switch (state) {
    case State::Tracked:
        return "tracked";
    case State::TrackedHighError:
        return "high error";
    case State::PartlySeen:
        return "partly seen";
    case State::Unmatched:
        return "unmatched";
    case State::NotInView:
        return "not in view";
    case State::NotOnCamera:
        return "not on camera";
    case State::Inactive:
        return "inactive";
    }
    return "unknown";
}

} // namespace Kestrion
