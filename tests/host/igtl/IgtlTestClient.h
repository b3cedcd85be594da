#pragma once

// A client of the OpenIGTLink server on the loopback address, reading messages with a deadline.

#include <igtlMessageBase.h>
#include <igtlMessageHeader.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion::Igtl::IgtlTest {

struct ReceivedMessage {
    std::string type;
    std::string name;
    std::vector<std::uint8_t> pack; // header and body
};

/// The bytes of a packed message.
inline std::vector<std::uint8_t> packed(igtl::MessageBase* message) {
    message->Pack();
    const auto* bytes = static_cast<const std::uint8_t*>(message->GetPackPointer());
    return std::vector<std::uint8_t>(bytes, bytes + message->GetPackSize());
}

/// The message of type M in `pack` (header and body), unpacked with its CRC checked (null when
/// the check fails).
template <class M>
typename M::Pointer unpackAs(const std::vector<std::uint8_t>& pack) {
    auto header = igtl::MessageHeader::New();
    header->InitPack();
    std::memcpy(header->GetPackPointer(), pack.data(), header->GetPackSize());
    header->Unpack();
    auto message = M::New();
    message->SetMessageHeader(header);
    message->AllocatePack();
    std::memcpy(message->GetPackBodyPointer(), pack.data() + header->GetPackSize(),
                message->GetPackBodySize());
    return (message->Unpack(1) & igtl::MessageHeader::UNPACK_BODY) ? message : nullptr;
}

/// A message as an OpenIGTLink 3 client sends it, header version 2, laid out byte by byte:
/// header (no device name), extended header (of `extendedSize` bytes, message id 7), content,
/// metadata header, metadata (US-ASCII values).
std::vector<std::uint8_t> version2(const std::string& type, const std::vector<std::uint8_t>& content,
                                   const std::vector<std::pair<std::string, std::string>>& metadata,
                                   std::uint16_t extendedSize = 12);
/// The content of STT_TDATA: the resolution and the coordinate name "Reference".
std::vector<std::uint8_t> startContent(std::int32_t resolutionMs);
/// The time in a message's header, microseconds since the epoch.
std::uint64_t timestampUS(const std::vector<std::uint8_t>& pack);

class IgtlTestClient {
public:
    /// Connects to 127.0.0.1:port; a receive buffer size > 0 is set before connecting.
    explicit IgtlTestClient(int port, int receiveBufferBytes = 0);
    ~IgtlTestClient();
    IgtlTestClient(const IgtlTestClient&) = delete;
    IgtlTestClient& operator=(const IgtlTestClient&) = delete;

    bool connected() const { return m_socket >= 0; }
    /// "127.0.0.1:<local port>", as the server names this client.
    std::string address() const;
    void send(const std::vector<std::uint8_t>& bytes);
    void close();
    /// Closes with a reset (SO_LINGER 0), as a client that goes away with data unread.
    void reset();
    /// Ends sending (the server reads the end of the stream), keeping the socket.
    void finishSending();
    /// The next message of that type (others are read and skipped; an empty type takes any);
    /// nothing when the server
    /// closes the connection or none comes within the time.
    std::optional<ReceivedMessage> next(const std::string& type,
                                        std::chrono::milliseconds within = std::chrono::seconds(20));

private:
    bool readFully(std::uint8_t* data, std::size_t size, std::chrono::steady_clock::time_point deadline);

    int m_socket = -1;
};

} // namespace Kestrion::Igtl::IgtlTest
