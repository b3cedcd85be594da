#include "atracsys/stream/AtracsysInstrumentId.h"

#include <stdexcept>

namespace Kestrion::SpryTrack {

namespace {
constexpr std::size_t prefixLength = 9; // "atracsys-"
}

std::string createId(int id) {
    return "atracsys-" + std::to_string(id);
}

int extractAtracsysId(const std::string& instrumentId) {
    if (instrumentId.size() < prefixLength)
        throw std::invalid_argument("extractAtracsysId: instrument id '" + instrumentId +
                                    "' is shorter than its prefix");
    // std::stoi throws invalid_argument for a rest without digits and out_of_range beyond int.
    return std::stoi(instrumentId.substr(prefixLength));
}

} // namespace Kestrion::SpryTrack
