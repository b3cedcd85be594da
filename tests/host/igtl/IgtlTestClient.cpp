#include "IgtlTestClient.h"

#include <igtlMessageHeader.h>
#include <igtl_header.h>

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kestrion::Igtl::IgtlTest {

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
        if (message.type == type)
            return message;
    }
}

} // namespace Kestrion::Igtl::IgtlTest
