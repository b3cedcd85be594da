#include "host/igtl/IgtlMessageReader.h"

#include <igtlMessageHeader.h>
#include <igtlStatusMessage.h>
#include <igtlTrackingDataMessage.h>
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

/// Unpacks a request of type M from the header and body; false on a CRC mismatch.
template <class M>
bool unpack(typename M::Pointer message, const std::uint8_t* header, const std::vector<std::uint8_t>& body) {
    if (body.empty()) // the library reports no body unpacked for these: the CRC of nothing is 0
        return bigEndian(header + CrcOffset, 8) == crc64(nullptr, 0, 0);
    igtl::MessageHeader::Pointer head = igtl::MessageHeader::New();
    head->InitPack();
    std::memcpy(head->GetPackPointer(), header, IgtlMessageReader::HeaderSize);
    head->Unpack();
    message->SetMessageHeader(head);
    message->AllocatePack();
    if (!body.empty())
        std::memcpy(message->GetPackBodyPointer(), body.data(), body.size());
    return (message->Unpack(1) & igtl::MessageHeader::UNPACK_BODY) != 0;
}

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
    const std::uint64_t version = bigEndian(m_header, 2);
    if (version != 1 && version != 2) {
        m_error = "unsupported header version " + std::to_string(version);
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
    // The library unpacks these bodies at their fixed size whatever the header says.
    const std::uint64_t expected = m_type == "STT_TDATA" ? StartBodySize : 0;
    if (m_keepBody && m_bodySize != expected) {
        m_error = "malformed " + m_type + " message: body of " + std::to_string(m_bodySize) +
                  " bytes instead of " + std::to_string(expected);
        return false;
    }
    m_body.clear();
    return true;
}

bool IgtlMessageReader::bodyComplete(std::vector<Request>& requests) {
    m_headerFill = 0;
    if (!m_keepBody) {
        ++m_skipped;
        return true;
    }
    Request request;
    bool intact = false;
    if (m_type == "STT_TDATA") {
        auto message = igtl::StartTrackingDataMessage::New();
        intact = unpack<igtl::StartTrackingDataMessage>(message, m_header, m_body);
        request.kind = Request::Kind::StartTrackingData;
        request.resolutionMs = std::max<std::int32_t>(0, message->GetResolution());
    } else if (m_type == "STP_TDATA") {
        intact =
            unpack<igtl::StopTrackingDataMessage>(igtl::StopTrackingDataMessage::New(), m_header, m_body);
        request.kind = Request::Kind::StopTrackingData;
    } else {
        intact = unpack<igtl::GetStatusMessage>(igtl::GetStatusMessage::New(), m_header, m_body);
        request.kind = Request::Kind::GetStatus;
    }
    if (!intact) {
        m_error = "CRC mismatch in " + m_type + " message";
        return false;
    }
    requests.push_back(request);
    return true;
}

} // namespace Kestrion::Igtl
