#include "simulator/src/FaultScript.h"

namespace Kestrion::Simulator {

namespace {

bool isFetchLevel(FaultRule::Kind kind) {
    return kind == FaultRule::Kind::FetchError || kind == FaultRule::Kind::Disconnection ||
           kind == FaultRule::Kind::MarkersStatus;
}

bool optionMatches(const FaultRule& rule, std::uint32_t id, const std::string& name) {
    if (rule.optionId) {
        return *rule.optionId == id;
    }
    return rule.optionName.empty() || rule.optionName == name;
}

} // namespace

void FaultScript::add(const FaultRule& fault) {
    // Faults on single fetches default to one affected fetch; the others last until cleared.
    std::int64_t remaining = -1;
    if (fault.count) {
        remaining = *fault.count < 0 ? -1 : *fault.count;
    } else if (isFetchLevel(fault.kind) && fault.kind != FaultRule::Kind::Disconnection && !fault.durationS) {
        remaining = 1;
    }
    m_faults.push_back(Active{fault, remaining});
}

void FaultScript::clear() {
    m_faults.clear();
    ++m_generation;
}

void FaultScript::onEmptyFetch(const FetchOutcome& outcome) {
    if (outcome.generation != m_generation)
        return;
    for (std::size_t index : outcome.deliveryFaults) {
        if (index < m_faults.size() && m_faults[index].remaining >= 0)
            ++m_faults[index].remaining;
    }
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
    const FaultRule& s = fault.rule;
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

FaultScript::FetchOutcome FaultScript::onWait(double timeS) {
    FetchOutcome outcome;
    for (Active& fault : m_faults) {
        // Fetch number 0: a fault triggered by a fetch count does not start here.
        if (fault.rule.kind != FaultRule::Kind::Disconnection || !fetchTriggered(fault, 0, timeS)) {
            continue;
        }
        outcome.disconnect = true;
        if (fault.rule.atTimeS && fault.rule.durationS)
            outcome.reconnectAtS = *fault.rule.atTimeS + *fault.rule.durationS;
    }
    return outcome;
}

FaultScript::FetchOutcome FaultScript::onFetch(std::uint64_t fetchNumber, double timeS) {
    FetchOutcome outcome;
    outcome.generation = m_generation;
    for (std::size_t index = 0; index < m_faults.size(); ++index) {
        Active& fault = m_faults[index];
        if (!isFetchLevel(fault.rule.kind)) {
            continue;
        }
        if (!fetchTriggered(fault, fetchNumber, timeS)) {
            continue;
        }
        switch (fault.rule.kind) {
        case FaultRule::Kind::Disconnection:
            outcome.disconnect = true;
            if (fault.rule.atTimeS && fault.rule.durationS)
                outcome.reconnectAtS = *fault.rule.atTimeS + *fault.rule.durationS;
            break;
        case FaultRule::Kind::FetchError:
            if (outcome.error == ftkError::FTK_OK) {
                outcome.error = fault.rule.code;
            }
            break;
        case FaultRule::Kind::MarkersStatus:
            outcome.delivery.overrideMarkers = true;
            outcome.delivery.markersStatus = fault.rule.markersStatus;
            if (fault.remaining >= 0)
                outcome.deliveryFaults.push_back(index);
            break;
        default:
            break;
        }
    }
    return outcome;
}

bool FaultScript::hidesDevice() const {
    for (const Active& fault : m_faults) {
        if (fault.rule.kind == FaultRule::Kind::NoDevice) {
            return true;
        }
    }
    return false;
}

std::optional<ftkError> FaultScript::enumerationStatus(bool& reportDevices) {
    for (Active& fault : m_faults) {
        if (fault.rule.kind == FaultRule::Kind::EnumerationStatus && consume(fault)) {
            reportDevices = fault.rule.reportDevices;
            return fault.rule.code;
        }
    }
    return std::nullopt;
}

std::optional<ftkError> FaultScript::optionEnumerationStatus() {
    for (Active& fault : m_faults) {
        if (fault.rule.kind == FaultRule::Kind::OptionEnumerationStatus && consume(fault)) {
            return fault.rule.code;
        }
    }
    return std::nullopt;
}

std::optional<ftkError> FaultScript::optionRefusal(std::uint32_t id, const std::string& name, bool set,
                                                   ftkOptionGetter what) {
    for (Active& fault : m_faults) {
        const FaultRule& s = fault.rule;
        if (s.kind != FaultRule::Kind::OptionRefusal || !optionMatches(s, id, name)) {
            continue;
        }
        const bool operationMatches =
            s.operation == FaultRule::Operation::Both ||
            (set ? s.operation == FaultRule::Operation::Set : s.operation == FaultRule::Operation::Get);
        const bool getterMatches = set || !s.getter || *s.getter == what;
        if (operationMatches && getterMatches && consume(fault)) {
            return s.code;
        }
    }
    return std::nullopt;
}

std::optional<ftkError> FaultScript::geometryRefusal(std::uint32_t geometryId, bool clear) {
    for (Active& fault : m_faults) {
        const FaultRule& s = fault.rule;
        if (s.kind != FaultRule::Kind::GeometryRefusal || s.onClear != clear) {
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

FaultRule::Malformations FaultScript::malformations(std::uint32_t id, const std::string& name) const {
    FaultRule::Malformations found = 0;
    for (const Active& fault : m_faults) {
        if (fault.rule.kind == FaultRule::Kind::MalformedOption && optionMatches(fault.rule, id, name)) {
            found |= FaultRule::bit(fault.rule.malformation);
        }
    }
    return found;
}

} // namespace Kestrion::Simulator
