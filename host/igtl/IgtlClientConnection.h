#pragma once

#include "host/igtl/IgtlFrameEncoder.h"
#include "host/igtl/IgtlMessageReader.h"
#include "host/igtl/IgtlServerSettings.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace Kestrion::Igtl {

/// One connected client of the server: its socket (non-blocking), the messages waiting for it,
/// what it asked for and what it was sent. Used by the server's thread only.
///
/// Waiting messages go out in the order they came, images last: STATUS messages are all kept;
/// frames are kept up to the settings' count, a newer one replacing the oldest waiting one; one
/// set of images is kept, a newer replacing it. What is replaced counts as dropped. A message is
/// never cut: the one being written is finished first.
class IgtlClientConnection {
public:
    using Clock = std::chrono::steady_clock;

    IgtlClientConnection(int socket, std::string address, const IgtlServerSettings& settings);
    ~IgtlClientConnection();
    IgtlClientConnection(const IgtlClientConnection&) = delete;
    IgtlClientConnection& operator=(const IgtlClientConnection&) = delete;

    int socket() const { return m_socket; }
    const std::string& address() const { return m_address; }

    void queueStatus(Packet message, Clock::time_point now);
    /// A frame's messages: those for everyone (`count` of them), then, if not null, its TDATA.
    void queueFrame(Packet messages, std::uint32_t count, Packet trackingData, Clock::time_point now);
    /// The camera images of one frame (`count` IMAGE messages).
    void queueImage(Packet messages, std::uint32_t count, Clock::time_point now);
    bool hasPending() const;

    /// Whether the client gets the TDATA of a frame measured at `timestampMs`: it asked with
    /// STT_TDATA, and its resolution has passed since the last one it was given.
    bool takesTrackingData(std::uint64_t timestampMs);
    /// Starts (STT_TDATA) or stops (STP_TDATA) the client's TDATA, in the coordinate system it
    /// names (empty: the camera's).
    void startTrackingData(std::int32_t resolutionMs, std::string coordinateName = {});
    const std::string& coordinateName() const { return m_coordinateName; }
    void stopTrackingData() { m_trackingData = false; }
    bool trackingData() const { return m_trackingData; }

    /// Reads what the client sent, appending its requests. False when the client is gone or is to
    /// be closed; closeReason() then says why (empty when the client closed or reset the
    /// connection between messages).
    bool readInput(std::vector<IgtlMessageReader::Request>& requests);
    /// Writes as much of the waiting messages as the socket takes. False when the client is to be
    /// closed (closeReason()): the connection failed, or nothing was taken for the send timeout.
    bool writePending(Clock::time_point now);
    const std::string& closeReason() const { return m_closeReason; }
    /// True once readInput() or writePending() returned false.
    bool closed() const { return m_closed; }

    std::uint64_t messagesSent() const { return m_sent; }
    std::uint64_t messagesDropped() const { return m_dropped; }

private:
    struct Entry {
        Packet bytes;
        Packet then; // written after bytes, as part of the same entry
        std::uint32_t messages = 1;
        bool frame = false; // may be dropped for a newer frame
    };
    bool next();
    void touch(Clock::time_point now);

    int m_socket;
    std::string m_address;
    const IgtlServerSettings& m_settings;
    IgtlMessageReader m_reader;
    std::vector<std::uint8_t> m_input; // receive buffer, reused

    std::deque<Entry> m_queue;
    std::size_t m_queuedFrames = 0;
    Entry m_image;
    Entry m_writing; // being written, from m_offset on
    std::size_t m_offset = 0;
    Clock::time_point m_lastProgress; // last byte taken by the socket, or when waiting began

    bool m_trackingData = false;
    std::int32_t m_resolutionMs = 0;
    std::string m_coordinateName;
    std::uint64_t m_lastTrackingDataMs = 0;
    bool m_sentTrackingData = false;

    std::uint64_t m_sent = 0;
    std::uint64_t m_dropped = 0;
    std::string m_closeReason;
    bool m_closed = false;
};

} // namespace Kestrion::Igtl
