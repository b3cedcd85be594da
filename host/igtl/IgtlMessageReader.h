#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion::Igtl {

/// Reads the OpenIGTLink messages a client sends, from the bytes as they arrive on its socket, in
/// pieces of any size. The requests the server answers (STT_TDATA, STP_TDATA, GET_STATUS) are
/// unpacked with their CRC checked; any other message is skipped by its body size without being
/// kept in memory.
///
/// Header version 1 and 2 are read. A version 2 body (what OpenIGTLink 3 clients send, e.g. with
/// metadata attached) is: an extended header (its own size, the metadata header's size, the
/// metadata's size, a message id), the content, the metadata header and the metadata; the CRC
/// covers the whole body. The extended header and the metadata are skipped by their sizes.
///
/// An error ends the reading for good (the server closes the client): a header version other
/// than 1 or 2, a body over the size limit, a CRC mismatch of a request, a request whose content
/// has not the size of its type, or whose extended header and metadata do not fit its body.
class IgtlMessageReader {
public:
    struct Request {
        enum class Kind { StartTrackingData, StopTrackingData, GetStatus };
        Kind kind = Kind::GetStatus;
        /// STT_TDATA: the interval the client asks for, milliseconds (0: every frame).
        std::int32_t resolutionMs = 0;
        /// STT_TDATA: the coordinate system the client asks the poses in (empty: the camera's).
        std::string coordinateName;
    };

    static constexpr std::size_t HeaderSize = 58;

    explicit IgtlMessageReader(std::uint64_t maxBodyBytes = 1u << 20);

    /// Reads `size` bytes, appending the complete requests to `requests`. False once an error
    /// occurred (see error()); bytes after the error are not read.
    bool read(const std::uint8_t* data, std::size_t size, std::vector<Request>& requests);

    const std::string& error() const { return m_error; }
    /// True while part of a message has been read and the rest is awaited.
    bool insideMessage() const { return m_headerFill > 0; }
    /// Messages skipped because the server does not handle their type.
    std::uint64_t skippedMessages() const { return m_skipped; }

private:
    bool headerComplete();
    bool bodyComplete(std::vector<Request>& requests);
    /// The content of a version 2 body (without extended header and metadata); false on sizes
    /// that do not fit the body.
    bool contentOf(const std::uint8_t*& content, std::uint64_t& contentSize);

    std::uint64_t m_maxBodyBytes;
    std::uint8_t m_header[HeaderSize] = {};
    std::size_t m_headerFill = 0;
    std::string m_type;
    std::uint16_t m_version = 0;
    std::uint64_t m_bodySize = 0;
    std::uint64_t m_bodyRemaining = 0; // of the current message, kept or skipped
    bool m_keepBody = false;
    std::vector<std::uint8_t> m_body; // the body of a request, reused
    std::uint64_t m_skipped = 0;
    std::string m_error;
};

} // namespace Kestrion::Igtl
