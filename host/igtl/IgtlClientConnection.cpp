#include "host/igtl/IgtlClientConnection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace Kestrion::Igtl {

namespace {
// STATUS messages are few (one per change); this many waiting means the client reads nothing.
constexpr std::size_t MaxQueuedStatuses = 1024;
constexpr std::size_t InputChunk = 64 * 1024;
} // namespace

IgtlClientConnection::IgtlClientConnection(int socket, std::string address,
                                           const IgtlServerSettings& settings)
    : m_socket(socket)
    , m_address(std::move(address))
    , m_settings(settings)
    , m_reader(settings.maxBodyBytes)
    , m_input(InputChunk) {}

IgtlClientConnection::~IgtlClientConnection() {
    ::close(m_socket);
}

void IgtlClientConnection::touch(Clock::time_point now) {
    if (!hasPending())
        m_lastProgress = now; // the send timeout counts from when messages began to wait
}

bool IgtlClientConnection::hasPending() const {
    return m_writing.bytes || !m_queue.empty() || m_image.bytes;
}

void IgtlClientConnection::queueStatus(Packet message, Clock::time_point now) {
    touch(now);
    if (m_queue.size() - m_queuedFrames >= MaxQueuedStatuses) {
        const auto oldest =
            std::find_if(m_queue.begin(), m_queue.end(), [](const Entry& e) { return !e.frame; });
        m_dropped += oldest->messages;
        m_queue.erase(oldest);
    }
    m_queue.push_back({std::move(message), nullptr, 1, false});
}

void IgtlClientConnection::queueFrame(Packet messages, std::uint32_t count, Packet trackingData,
                                      Clock::time_point now) {
    touch(now);
    if (m_queuedFrames >= std::max<std::size_t>(1, m_settings.queuedFrames)) {
        const auto oldest =
            std::find_if(m_queue.begin(), m_queue.end(), [](const Entry& e) { return e.frame; });
        m_dropped += oldest->messages;
        m_queue.erase(oldest);
        --m_queuedFrames;
    }
    if (!messages || messages->empty()) {
        messages = std::move(trackingData);
        trackingData.reset();
    }
    if (!messages)
        return;
    if (trackingData)
        ++count;
    m_queue.push_back({std::move(messages), std::move(trackingData), count, true});
    ++m_queuedFrames;
}

void IgtlClientConnection::queueImage(Packet messages, std::uint32_t count, Clock::time_point now) {
    touch(now);
    if (m_image.bytes)
        m_dropped += m_image.messages;
    m_image = {std::move(messages), nullptr, count, false};
}

bool IgtlClientConnection::takesTrackingData(std::uint64_t timestampMs) {
    if (!m_trackingData)
        return false;
    if (m_sentTrackingData && timestampMs < m_lastTrackingDataMs + static_cast<std::uint64_t>(m_resolutionMs))
        return false;
    m_sentTrackingData = true;
    m_lastTrackingDataMs = timestampMs;
    return true;
}

void IgtlClientConnection::startTrackingData(std::int32_t resolutionMs, std::string coordinateName) {
    m_trackingData = true;
    m_resolutionMs = resolutionMs;
    m_coordinateName = std::move(coordinateName);
    m_sentTrackingData = false;
}

bool IgtlClientConnection::readInput(std::vector<IgtlMessageReader::Request>& requests) {
    for (;;) {
        const ssize_t got = ::recv(m_socket, m_input.data(), m_input.size(), MSG_DONTWAIT);
        if (got > 0) {
            if (!m_reader.read(m_input.data(), static_cast<std::size_t>(got), requests)) {
                m_closeReason = m_reader.error();
                m_closed = true;
                return false;
            }
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return true;
        // An orderly close, or a reset (a client that closes with data it did not read): the
        // client went away, which is no fault of either side.
        if (got == 0 || errno == ECONNRESET) {
            if (m_reader.insideMessage())
                m_closeReason = "disconnected in the middle of a message";
            m_closed = true;
            return false;
        }
        m_closeReason = std::string("receive failed: ") + std::strerror(errno);
        m_closed = true;
        return false;
    }
}

bool IgtlClientConnection::next() {
    if (!m_queue.empty()) {
        m_writing = std::move(m_queue.front());
        m_queue.pop_front();
        if (m_writing.frame)
            --m_queuedFrames;
    } else if (m_image.bytes) {
        m_writing = std::move(m_image);
        m_image = {};
    } else {
        return false;
    }
    m_offset = 0;
    return true;
}

bool IgtlClientConnection::writePending(Clock::time_point now) {
    while (m_writing.bytes || next()) {
        const std::vector<std::uint8_t>& bytes = *m_writing.bytes;
        // MSG_NOSIGNAL: a client that went away is an error result here, not a SIGPIPE.
        const ssize_t put =
            ::send(m_socket, bytes.data() + m_offset, bytes.size() - m_offset, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                // A client gone (reset, or closed before reading) is a disconnection.
                if (errno != ECONNRESET && errno != EPIPE)
                    m_closeReason = std::string("send failed: ") + std::strerror(errno);
                m_closed = true;
                return false;
            }
            break;
        }
        m_lastProgress = now;
        m_offset += static_cast<std::size_t>(put);
        if (m_offset == bytes.size()) {
            m_offset = 0;
            if (m_writing.then) {
                m_writing.bytes = std::move(m_writing.then);
                m_writing.then.reset();
            } else {
                m_sent += m_writing.messages;
                m_writing = {};
            }
        }
    }
    if (hasPending() && now - m_lastProgress >= std::chrono::milliseconds(m_settings.sendTimeoutMs)) {
        m_closeReason = "stopped reading for " + std::to_string(m_settings.sendTimeoutMs) + " ms";
        m_closed = true;
        return false;
    }
    return true;
}

} // namespace Kestrion::Igtl
