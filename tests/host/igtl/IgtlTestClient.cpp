#include "IgtlTestClient.h"

#include <igtlMessageHeader.h>
#include <igtl_header.h>
#include <igtl_util.h>

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kestrion::Igtl::IgtlTest {

namespace {
void putBigEndian(std::vector<std::uint8_t>& out, std::uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
} // namespace

std::vector<std::uint8_t> version2(const std::string& type, const std::vector<std::uint8_t>& content,
                                   const std::vector<std::pair<std::string, std::string>>& metadata,
                                   std::uint16_t extendedSize) {
    std::vector<std::uint8_t> metaHeader, meta, body, message;
    putBigEndian(metaHeader, metadata.size(), 2);
    for (const auto& [key, value] : metadata) {
        putBigEndian(metaHeader, key.size(), 2);
        putBigEndian(metaHeader, 3, 2); // US-ASCII
        putBigEndian(metaHeader, value.size(), 4);
        meta.insert(meta.end(), key.begin(), key.end());
        meta.insert(meta.end(), value.begin(), value.end());
    }
    putBigEndian(body, extendedSize, 2);
    putBigEndian(body, metaHeader.size(), 2);
    putBigEndian(body, meta.size(), 4);
    putBigEndian(body, 7, 4);
    body.resize(extendedSize, 0);
    body.insert(body.end(), content.begin(), content.end());
    body.insert(body.end(), metaHeader.begin(), metaHeader.end());
    body.insert(body.end(), meta.begin(), meta.end());
    putBigEndian(message, 2, 2);
    for (std::size_t i = 0; i < 12 + 20; ++i)
        message.push_back(i < type.size() ? static_cast<std::uint8_t>(type[i]) : 0);
    putBigEndian(message, 0, 8);
    putBigEndian(message, body.size(), 8);
    putBigEndian(message, crc64(body.data(), body.size(), 0), 8);
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

std::vector<std::uint8_t> startContent(std::int32_t resolutionMs) {
    std::vector<std::uint8_t> content;
    putBigEndian(content, static_cast<std::uint32_t>(resolutionMs), 4);
    const std::string coordinates = "Reference";
    content.insert(content.end(), coordinates.begin(), coordinates.end());
    content.resize(36, 0);
    return content;
}

std::uint64_t timestampUS(const std::vector<std::uint8_t>& pack) {
    std::uint64_t stamp = 0; // seconds (32 bits), then the fraction in units of 2^-32 s
    for (int i = 0; i < 8; ++i)
        stamp = (stamp << 8) | pack[34 + i];
    return (stamp >> 32) * 1000000 + (((stamp & 0xFFFFFFFFu) * 1000000 + (1ull << 31)) >> 32);
}

IgtlTestClient::IgtlTestClient(int port, int receiveBufferBytes) {
    m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBufferBytes > 0)
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        close();
}

IgtlTestClient::~IgtlTestClient() {
    close();
}

void IgtlTestClient::close() {
    if (m_socket >= 0)
        ::close(m_socket);
    m_socket = -1;
}

void IgtlTestClient::reset() {
    const linger abort{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    close();
}

void IgtlTestClient::finishSending() {
    ::shutdown(m_socket, SHUT_WR);
}

std::string IgtlTestClient::address() const {
    sockaddr_in local{};
    socklen_t length = sizeof local;
    ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&local), &length);
    return "127.0.0.1:" + std::to_string(ntohs(local.sin_port));
}

void IgtlTestClient::send(const std::vector<std::uint8_t>& bytes) {
    if (m_socket >= 0)
        ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

bool IgtlTestClient::readFully(std::uint8_t* data, std::size_t size,
                               std::chrono::steady_clock::time_point deadline) {
    while (size > 0 && m_socket >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd polled{m_socket, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&polled, 1, static_cast<int>(left.count())) <= 0)
            return false;
        const ssize_t got = ::recv(m_socket, data, size, 0);
        if (got <= 0)
            return false;
        data += got;
        size -= static_cast<std::size_t>(got);
    }
    return size == 0;
}

std::optional<ReceivedMessage> IgtlTestClient::next(const std::string& type,
                                                    std::chrono::milliseconds within) {
    const auto deadline = std::chrono::steady_clock::now() + within;
    for (;;) {
        ReceivedMessage message;
        message.pack.resize(IGTL_HEADER_SIZE);
        if (!readFully(message.pack.data(), IGTL_HEADER_SIZE, deadline))
            return std::nullopt;
        auto header = igtl::MessageHeader::New();
        header->InitPack();
        std::memcpy(header->GetPackPointer(), message.pack.data(), IGTL_HEADER_SIZE);
        header->Unpack();
        message.type = header->GetDeviceType();
        message.name = header->GetDeviceName();
        message.pack.resize(IGTL_HEADER_SIZE + static_cast<std::size_t>(header->GetBodySizeToRead()));
        if (!readFully(message.pack.data() + IGTL_HEADER_SIZE, message.pack.size() - IGTL_HEADER_SIZE,
                       deadline))
            return std::nullopt;
        if (type.empty() || message.type == type)
            return message;
    }
}

} // namespace Kestrion::Igtl::IgtlTest
