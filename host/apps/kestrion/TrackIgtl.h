#pragma once

#include "host/igtl/IgtlServer.h"

#include <memory>
#include <ostream>
#include <string>

namespace Kestrion {
class TrackingStream;
}

namespace Kestrion::Cli {

struct TrackOptions;

/// The OpenIGTLink server of `kestrion track --igtl`: serves the tracking stream while the
/// command tracks and adds its clients to the table.
class TrackIgtl {
public:
    TrackIgtl() = default;
    ~TrackIgtl() { stop(); }
    TrackIgtl(const TrackIgtl&) = delete;
    TrackIgtl& operator=(const TrackIgtl&) = delete;

    /// Listens as the options say (nothing when they ask for no server) and serves `stream`; says
    /// where on `out`. False with *error set when the server cannot listen.
    bool start(const TrackOptions& options, TrackingStream& stream, std::ostream& out, std::string* error);
    /// Stops serving and closes the clients; before the stream goes.
    void stop();

    /// The table's lines about the server and each client (empty without a server).
    std::string table() const;

private:
    std::unique_ptr<Igtl::IgtlServer> m_server;
};

} // namespace Kestrion::Cli
