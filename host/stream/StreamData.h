#pragma once

#include <cstdint>

namespace Kestrion {

class Stream;

/// One item of a stream's data (a tracking frame, a camera image, a compound of both), passed to
/// receivers as std::shared_ptr<const StreamData> and shared from then on, so it is filled before
/// it is emitted and never changed after.
///
/// Timestamps are milliseconds since the Unix epoch (UTC): the arrival timestamp is when the host
/// received the data, the device timestamp when the device measured it (0 when unknown).
/// stream() names the stream that produced the item (may be null); it serves to tell items of
/// different streams apart and is not to be used after that stream was destroyed.
class StreamData {
public:
    explicit StreamData(const Stream* stream = nullptr, std::uint64_t arrivalTimestamp = 0,
                        std::uint64_t deviceTimestamp = 0);
    virtual ~StreamData();

    const Stream* stream() const { return m_stream; }
    std::uint64_t arrivalTimestamp() const { return m_arrivalTimestamp; }
    std::uint64_t deviceTimestamp() const { return m_deviceTimestamp; }
    void setArrivalTimestamp(std::uint64_t milliseconds) { m_arrivalTimestamp = milliseconds; }
    void setDeviceTimestamp(std::uint64_t milliseconds) { m_deviceTimestamp = milliseconds; }

protected:
    StreamData(const StreamData&) = default;
    StreamData& operator=(const StreamData&) = default;

private:
    const Stream* m_stream;
    std::uint64_t m_arrivalTimestamp;
    std::uint64_t m_deviceTimestamp;
};

} // namespace Kestrion
