#include "simulator/src/FaultScript.h"

namespace Kestrion::Simulator {

namespace {

bool isFetchLevel(FaultSpec::Kind kind) {
    return kind == FaultSpec::Kind::FetchError || kind == FaultSpec::Kind::Disconnection ||
           kind == FaultSpec::Kind::MarkersStatus;
}

bool optionMatches(const FaultSpec& spec, std::uint32_t id, const std::string& name) {
    if (spec.optionId) {
        return *spec.optionId == id;
    }
    return spec.optionName.empty() || spec.optionName == name;
}

} // namespace

void FaultScript::add(const FaultSpec& fault) {
    // Faults on single fetches default to one affected fetch; the others last until cleared.
    std::int64_t remaining = -1;
    if (fault.count) {
        remaining = *fault.count < 0 ? -1 : *fault.count;
    } else if (isFetchLevel(fault.kind) && fault.kind != FaultSpec::Kind::Disconnection && !fault.durationS) {
        remaining = 1;
    }
    m_faults.push_back(Active{fault, remaining});
}

void FaultScript::clear() {
    m_faults.clear();
}

bool FaultScript::consume(Active& fault) {
    if (fault.remaining == 0) {
        return false;
    }
    if (fault.remaining > 0) {
        --fault.remaining;
    }
    return true;
}

bool FaultScript::fetchTriggered(Active& fault, std::uint64_t fetchNumber, double timeS) {
    const FaultSpec& s = fault.spec;
    if (!fault.started) {
        const bool byFetch = s.atFetch && fetchNumber >= *s.atFetch;
        const bool byTime = s.atTimeS && timeS >= *s.atTimeS;
        fault.started = byFetch || byTime || (!s.atFetch && !s.atTimeS);
    }
    if (!fault.started) {
        return false;
    }
    if (s.durationS && s.atTimeS) {
        if (timeS >= *s.atTimeS + *s.durationS) {
            return false;
        }
        return consume(fault);
    }
    return consume(fault);
}

FaultScript::FetchOutcome FaultScript::onFetch(std::uint64_t fetchNumber, double timeS) {
    FetchOutcome outcome;
    for (Active& fault : m_faults) {
        if (!isFetchLevel(fault.spec.kind)) {
            continue;
        }
        if (!fetchTriggered(fault, fetchNumber, timeS)) {
            continue;
        }
        switch (fault.spec.kind) {
        case FaultSpec::Kind::Disconnection:
            outcome.disconnect = true;
            break;
        case FaultSpec::Kind::FetchError:
            if (outcome.error == ftkError::FTK_OK) {
                outcome.error = fault.spec.code;
            }
            break;
        case FaultSpec::Kind::MarkersStatus:
            outcome.delivery.overrideMarkers = true;
            outcome.delivery.markersStatus = fault.spec.markersStatus;
            break;
        default:
            break;
        }
    }
    return outcome;
}

bool FaultScript::hidesDevice() const {
    for (const Active& fault : m_faults) {
        if (fault.spec.kind == FaultSpec::Kind::NoDevice) {
            return true;
        }
    }
    return false;
}

std::optional<ftkError> FaultScript::enumerationStatus(bool& reportDevices) {
    for (Active& fault : m_faults) {
        if (fault.spec.kind == FaultSpec::Kind::EnumerationStatus && consume(fault)) {
            reportDevices = fault.spec.reportDevices;
            return fault.spec.code;
        }
    }
    return std::nullopt;
}

std::optional<ftkError> FaultScript::optionEnumerationStatus() {
    for (Active& fault : m_faults) {
        if (fault.spec.kind == FaultSpec::Kind::OptionEnumerationStatus && consume(fault)) {
            return fault.spec.code;
        }
    }
    return std::nullopt;
}

std::optional<ftkError> FaultScript::optionRefusal(std::uint32_t id, const std::string& name, bool set) {
    for (Active& fault : m_faults) {
        const FaultSpec& s = fault.spec;
        if (s.kind != FaultSpec::Kind::OptionRefusal || !optionMatches(s, id, name)) {
            continue;
        }
        const bool operationMatches =
            s.operation == FaultSpec::Operation::Both ||
            (set ? s.operation == FaultSpec::Operation::Set : s.operation == FaultSpec::Operation::Get);
        if (operationMatches && consume(fault)) {
            return s.code;
        }
    }
    return std::nullopt;
}

std::optional<ftkError> FaultScript::geometryRefusal(std::uint32_t geometryId, bool clear) {
    for (Active& fault : m_faults) {
        const FaultSpec& s = fault.spec;
        if (s.kind != FaultSpec::Kind::GeometryRefusal || s.onClear != clear) {
            continue;
        }
        if (s.geometryId && *s.geometryId != geometryId) {
            continue;
        }
        if (consume(fault)) {
            return s.code;
        }
    }
    return std::nullopt;
}

std::optional<FaultSpec::Malformation> FaultScript::malformation(std::uint32_t id,
                                                                 const std::string& name) const {
    for (const Active& fault : m_faults) {
        if (fault.spec.kind == FaultSpec::Kind::MalformedOption && optionMatches(fault.spec, id, name)) {
            return fault.spec.malformation;
        }
    }
    return std::nullopt;
}

} // namespace Kestrion::Simulator
