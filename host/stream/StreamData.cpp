#include "host/stream/StreamData.h"

namespace Kestrion {

StreamData::StreamData(const Stream* stream, std::uint64_t arrivalTimestamp, std::uint64_t deviceTimestamp)
    : m_stream(stream)
    , m_arrivalTimestamp(arrivalTimestamp)
    , m_deviceTimestamp(deviceTimestamp) {}

StreamData::~StreamData() = default;

} // namespace Kestrion
