#include "host/apps/kestrion/TrackIgtl.h"

#include "host/apps/kestrion/TrackOptions.h"

#include <cstdio>

namespace Kestrion::Cli {

bool TrackIgtl::start(const TrackOptions& options, TrackingStream& stream, std::ostream& out,
                      std::string* error) {
    if (!options.igtlPort)
        return true;
    Igtl::IgtlServerSettings settings;
    settings.port = *options.igtlPort;
    settings.bindAddress = options.igtlBind;
    m_server = std::make_unique<Igtl::IgtlServer>(settings);
    if (!m_server->start(error)) {
        m_server.reset();
        return false;
    }
    m_server->serve(&stream);
    out << "Serving OpenIGTLink on " << settings.bindAddress << ":" << m_server->port();
    if (settings.bindAddress != "127.0.0.1")
        out << " (reachable from the network, without authentication)";
    out << "\n" << std::flush;
    return true;
}

void TrackIgtl::stop() {
    m_server.reset();
}

std::string TrackIgtl::table() const {
    if (!m_server)
        return "";
    const auto clients = m_server->clients();
    std::string text = "OpenIGTLink " + m_server->settings().bindAddress + ":" +
                       std::to_string(m_server->port()) + ": " + std::to_string(clients.size()) +
                       " client(s)\n";
    for (const auto& client : clients) {
        char line[160];
        std::snprintf(line, sizeof line, "  %-21s sent %10llu  dropped %8llu%s\n", client.address.c_str(),
                      static_cast<unsigned long long>(client.messagesSent),
                      static_cast<unsigned long long>(client.messagesDropped),
                      client.trackingData ? "  TDATA" : "");
        text += line;
    }
    return text;
}

} // namespace Kestrion::Cli
