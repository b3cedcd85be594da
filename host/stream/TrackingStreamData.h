#pragma once

#include "host/stream/DataComponent.h"
#include "host/stream/StreamData.h"
#include "host/stream/TrackingInstrument.h"

#include <memory>
#include <string>
#include <vector>

namespace Kestrion {

/// One frame of a tracking stream: a snapshot of its instruments plus optional components (raw
/// fiducials and the like), looked up by type.
class TrackingStreamData : public StreamData {
public:
    TrackingStreamData(const Stream* stream, std::vector<TrackingInstrument> instruments,
                       std::uint64_t arrivalTimestamp = 0, std::uint64_t deviceTimestamp = 0);

    const std::vector<TrackingInstrument>& instruments() const { return m_instruments; }
    std::size_t numInstruments(bool onlyActive) const;
    /// The instrument with that id, or null.
    const TrackingInstrument* instrument(const std::string& id) const;

    using Components = std::vector<std::shared_ptr<const DataComponent>>;
    const Components& components() const { return m_components; }
    /// Appends a component (a unique or shared pointer); null is ignored.
    void addComponent(std::shared_ptr<const DataComponent> component);
    /// The first component of type C (or derived from it), or null.
    template <class C>
    const C* component() const {
        for (const auto& c : m_components)
            if (auto typed = dynamic_cast<const C*>(c.get()))
                return typed;
        return nullptr;
    }

private:
    std::vector<TrackingInstrument> m_instruments;
    Components m_components;
};

} // namespace Kestrion
