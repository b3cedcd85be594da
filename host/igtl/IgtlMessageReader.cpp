#include "host/igtl/IgtlMessageReader.h"

#include <igtl_util.h>

#include <algorithm>
#include <cstring>

namespace Kestrion::Igtl {

namespace {

std::uint64_t bigEndian(const std::uint8_t* bytes, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

// Offsets in the 58-byte header: version (2), type (12), device name (20), timestamp (8), body
// size (8), CRC (8).
constexpr std::size_t TypeOffset = 2;
constexpr std::size_t TypeSize = 12;
constexpr std::size_t BodySizeOffset = 42;
constexpr std::size_t CrcOffset = 50;
// STT_TDATA: resolution (4) and coordinate name (32).
constexpr std::uint64_t StartBodySize = 36;
// The extended header of a version 2 body: its size (2), the metadata header's size (2), the
// metadata's size (4), the message id (4).
constexpr std::uint64_t ExtendedHeaderSize = 12;

} // namespace

IgtlMessageReader::IgtlMessageReader(std::uint64_t maxBodyBytes)
    : m_maxBodyBytes(maxBodyBytes) {}

bool IgtlMessageReader::read(const std::uint8_t* data, std::size_t size, std::vector<Request>& requests) {
    while (m_error.empty() && size > 0) {
        if (m_headerFill < HeaderSize) {
            const std::size_t take = std::min(size, HeaderSize - m_headerFill);
            std::memcpy(m_header + m_headerFill, data, take);
            m_headerFill += take;
            data += take;
            size -= take;
            if (m_headerFill < HeaderSize || !headerComplete())
                continue;
        } else {
            const std::size_t take = static_cast<std::size_t>(std::min<std::uint64_t>(size, m_bodyRemaining));
            if (m_keepBody)
                m_body.insert(m_body.end(), data, data + take);
            m_bodyRemaining -= take;
            data += take;
            size -= take;
        }
        if (m_headerFill == HeaderSize && m_bodyRemaining == 0)
            bodyComplete(requests);
    }
    return m_error.empty();
}

bool IgtlMessageReader::headerComplete() {
    m_version = static_cast<std::uint16_t>(bigEndian(m_header, 2));
    if (m_version != 1 && m_version != 2) {
        m_error = "unsupported header version " + std::to_string(m_version);
        return false;
    }
    const char* type = reinterpret_cast<const char*>(m_header + TypeOffset);
    m_type.assign(type, strnlen(type, TypeSize));
    m_bodySize = bigEndian(m_header + BodySizeOffset, 8);
    if (m_bodySize > m_maxBodyBytes) {
        m_error = "message body of " + std::to_string(m_bodySize) + " bytes over the limit of " +
                  std::to_string(m_maxBodyBytes);
        return false;
    }
    m_bodyRemaining = m_bodySize;
    m_keepBody = m_type == "STT_TDATA" || m_type == "STP_TDATA" || m_type == "GET_STATUS";
    // A version 1 request is its content alone, of its type's fixed size; a version 2 request
    // is checked once its extended header is read.
    const std::uint64_t expected = m_type == "STT_TDATA" ? StartBodySize : 0;
    if (m_keepBody && m_version == 1 && m_bodySize != expected) {
        m_error = "malformed " + m_type + " message: body of " + std::to_string(m_bodySize) +
                  " bytes instead of " + std::to_string(expected);
        return false;
    }
    m_body.clear();
    return true;
}

bool IgtlMessageReader::contentOf(const std::uint8_t*& content, std::uint64_t& contentSize) {
    const std::uint64_t body = m_body.size();
    if (body < ExtendedHeaderSize) {
        m_error = "malformed " + m_type + " message: body of " + std::to_string(body) +
                  " bytes, shorter than its extended header";
        return false;
    }
    const std::uint64_t extended = bigEndian(m_body.data(), 2);
    const std::uint64_t metadata = bigEndian(m_body.data() + 2, 2) + bigEndian(m_body.data() + 4, 4);
    if (extended < ExtendedHeaderSize || extended + metadata > body) {
        m_error = "malformed " + m_type + " message: extended header of " + std::to_string(extended) +
                  " bytes and metadata of " + std::to_string(metadata) + " bytes in a body of " +
                  std::to_string(body);
        return false;
    }
    content = m_body.data() + extended;
    contentSize = body - extended - metadata;
    return true;
}

bool IgtlMessageReader::bodyComplete(std::vector<Request>& requests) {
    m_headerFill = 0;
    if (!m_keepBody) {
        ++m_skipped;
        return true;
    }
    // The CRC covers the whole body, in version 2 extended header and metadata included.
    const std::uint64_t crc = crc64(m_body.data(), m_body.size(), 0);
    if (crc != bigEndian(m_header + CrcOffset, 8)) {
        m_error = "CRC mismatch in " + m_type + " message";
        return false;
    }
    const std::uint8_t* content = m_body.data();
    std::uint64_t contentSize = m_body.size();
    if (m_version == 2) {
        if (!contentOf(content, contentSize))
            return false;
        const std::uint64_t expected = m_type == "STT_TDATA" ? StartBodySize : 0;
        if (contentSize != expected) {
            m_error = "malformed " + m_type + " message: content of " + std::to_string(contentSize) +
                      " bytes instead of " + std::to_string(expected);
            return false;
        }
    }
    Request request;
    if (m_type == "STT_TDATA") {
        request.kind = Request::Kind::StartTrackingData;
        const auto resolution = static_cast<std::int32_t>(static_cast<std::uint32_t>(bigEndian(content, 4)));
        request.resolutionMs = std::max<std::int32_t>(0, resolution);
        const char* coordinates = reinterpret_cast<const char*>(content + 4);
        request.coordinateName.assign(coordinates, strnlen(coordinates, StartBodySize - 4));
    } else if (m_type == "STP_TDATA") {
        request.kind = Request::Kind::StopTrackingData;
    } else {
        request.kind = Request::Kind::GetStatus;
    }
    requests.push_back(request);
    return true;
}

} // namespace Kestrion::Igtl
