#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Kestrion::Igtl {

/// Byte buffers for packed messages, handed out again once nobody holds them any more, so that
/// packing a frame allocates nothing in the steady state. Used by one thread only: the server's,
/// which also owns every holder (the client queues), so the use counts it reads are exact.
class IgtlBufferPool {
public:
    using Buffer = std::shared_ptr<std::vector<std::uint8_t>>;

    explicit IgtlBufferPool(std::size_t maxPooled = 64)
        : m_maxPooled(maxPooled) {}

    /// An empty buffer (its capacity kept from earlier use when it is a pooled one).
    Buffer acquire() {
        for (const Buffer& buffer : m_buffers)
            if (buffer.use_count() == 1) {
                buffer->clear();
                return buffer;
            }
        auto buffer = std::make_shared<std::vector<std::uint8_t>>();
        if (m_buffers.size() < m_maxPooled)
            m_buffers.push_back(buffer);
        return buffer;
    }

private:
    std::size_t m_maxPooled;
    std::vector<Buffer> m_buffers;
};

} // namespace Kestrion::Igtl
