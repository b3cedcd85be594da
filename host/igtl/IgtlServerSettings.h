#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Kestrion::Igtl {

/// How an OpenIGTLink server listens and how much it lets each client lag behind.
struct IgtlServerSettings {
    /// Address to listen on. The loopback address keeps the server to this computer; any other
    /// lets every computer of the network connect, without authentication.
    std::string bindAddress = "127.0.0.1";
    /// TCP port; 0 lets the system choose a free one (see IgtlServer::port()).
    int port = 18944;
    /// Connected clients at most; one more is refused.
    std::size_t maxClients = 16;
    /// Largest message body a client may send; a larger one closes the client.
    std::uint64_t maxBodyBytes = 1u << 20;
    /// Frames waiting for a client at most; a newer frame replaces the oldest waiting one.
    std::size_t queuedFrames = 2;
    /// A client that accepts no byte of waiting messages for this long is closed.
    int sendTimeoutMs = 5000;
    /// Camera images sent per second at most; 0 sends none.
    double imageRateHz = 5.0;
};

} // namespace Kestrion::Igtl
