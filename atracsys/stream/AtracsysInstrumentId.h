#pragma once

#include <string>

namespace Kestrion::SpryTrack {

/// Instrument id of a marker geometry: "atracsys-" followed by the decimal geometry id
/// ("atracsys-1004"; negative numbers keep their "-").
std::string createId(int id);

/// Inverse of createId: drops the 9-character prefix and parses the rest as a decimal int.
/// Throws std::invalid_argument when the rest holds no number (or the id is shorter than the
/// prefix) and std::out_of_range when the number does not fit an int; pass only ids made by
/// createId.
int extractAtracsysId(const std::string& instrumentId);

} // namespace Kestrion::SpryTrack
