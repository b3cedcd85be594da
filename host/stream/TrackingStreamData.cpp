#include "host/stream/TrackingStreamData.h"

#include <algorithm>

namespace Kestrion {

TrackingStreamData::TrackingStreamData(const Stream* stream, std::vector<TrackingInstrument> instruments,
                                       std::uint64_t arrivalTimestamp, std::uint64_t deviceTimestamp)
    : StreamData(stream, arrivalTimestamp, deviceTimestamp)
    , m_instruments(std::move(instruments)) {}

std::size_t TrackingStreamData::numInstruments(bool onlyActive) const {
    if (!onlyActive)
        return m_instruments.size();
    return static_cast<std::size_t>(std::count_if(m_instruments.begin(), m_instruments.end(),
                                                  [](const TrackingInstrument& i) { return i.active; }));
}

const TrackingInstrument* TrackingStreamData::instrument(const std::string& id) const {
    for (const auto& i : m_instruments)
        if (i.ID() == id)
            return &i;
    return nullptr;
}

void TrackingStreamData::addComponent(std::shared_ptr<const DataComponent> component) {
    if (component)
        m_components.push_back(std::move(component));
}

} // namespace Kestrion
